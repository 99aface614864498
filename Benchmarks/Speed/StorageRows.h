/// @file
/// The rows of the group "storage", file by file, and how what rows keep beyond themselves is ended.
#pragma once

namespace speed {

void addLookUpRows();

/// Gives up what the look-ups compare with; the next one makes it anew.
void endLookUps();

/// Gives up what the rows of the providers store and retrieve: the process has one storage manager.
void endProviders();

void addPathTableRows();

void addWalkRows();

} // namespace speed
