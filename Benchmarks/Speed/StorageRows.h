/// @file
/// The rows of the group "storage", file by file.
#pragma once

namespace speed {

void addLookUpRows();

/// Gives up what the look-ups compare with; the next one makes it anew.
void endLookUps();

void addPathTableRows();

void addWalkRows();

} // namespace speed
