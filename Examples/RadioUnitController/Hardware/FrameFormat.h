/// @file
/// How a radio frame is divided between downlink and uplink.
///
/// As text, one setting a line, '#' starts a comment:
///     name     balanced
///     symbols  14            # in a slot
///     slots    DDDSUUDDSU    # downlink, special, uplink
///     special  10 2 2        # symbols of downlink, guard and uplink in a special slot
#pragma once

#include <string>

namespace radio {

struct FrameFormat {
    std::string name;
    unsigned int symbols = 0;
    std::string slots;
    unsigned int specialDownlink = 0;
    unsigned int specialGuard = 0;
    unsigned int specialUplink = 0;
};

/// Reads the text's settings; whether they fit together is checkFrameFormat's question.
/// @return empty when done, otherwise which line is wrong and what it should be.
std::string parseFrameFormat(const std::string &text, FrameFormat &format);

/// @return empty when the radio can run this format, otherwise why not.
std::string checkFrameFormat(const FrameFormat &format);

/// Symbols of a frame in which the radio sends; the rest is guard and uplink.
unsigned int downlinkSymbols(const FrameFormat &format);

/// Two formats that every controller has.
extern const char *const balancedFrameFormat;
extern const char *const downlinkFrameFormat;

} // namespace radio
