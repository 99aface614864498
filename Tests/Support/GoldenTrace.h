/// @file
/// The whole trace of a run against a page that is written by hand.
#pragma once

namespace test {

/// Expects the records to be the page's lines "level code function: message", in their order; the message's last
/// newline is left out. Blank lines and lines that begin with # are the page's own.
void expectGoldenTrace(const char *page);

} // namespace test
