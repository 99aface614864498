#include "Hardware/FrameFormat.h"

#include <algorithm>
#include <sstream>

namespace radio {
namespace {

constexpr unsigned int symbolsOfSlot[] = {12, 14};
constexpr std::size_t slotsOfFrame = 10;

template <typename... Values>
bool readAll(std::istream &line, Values &...values) {
    std::string rest;
    return static_cast<bool>((line >> ... >> values)) && !(line >> rest);
}

} // namespace

const char *const balancedFrameFormat = "name     balanced\n"
                                        "symbols  14\n"
                                        "slots    DDDSUUDDSU\n"
                                        "special  10 2 2\n";

const char *const downlinkFrameFormat = "name     downlink\n"
                                        "symbols  14\n"
                                        "slots    DDDDDDDDSU\n"
                                        "special  10 2 2\n";

std::string parseFrameFormat(const std::string &text, FrameFormat &format) {
    FrameFormat candidate;
    std::istringstream lines(text);
    std::string line;
    for (unsigned int number = 1; std::getline(lines, line); ++number) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string setting;
        if (!(words >> setting)) {
            continue;
        }
        bool good = false;
        if (setting == "name") {
            good = readAll(words, candidate.name);
        } else if (setting == "symbols") {
            good = readAll(words, candidate.symbols);
        } else if (setting == "slots") {
            good = readAll(words, candidate.slots);
        } else if (setting == "special") {
            good = readAll(words, candidate.specialDownlink, candidate.specialGuard, candidate.specialUplink);
        }
        if (!good) {
            return "line " + std::to_string(number) + " of the frame format reads \"" + line +
                   "\"; it takes: name TEXT, symbols NUMBER, slots LETTERS, or special NUMBER NUMBER NUMBER";
        }
    }
    format = candidate;
    return {};
}

std::string checkFrameFormat(const FrameFormat &format) {
    if (format.name.empty()) {
        return "the frame format has no name; add the line: name TEXT";
    }
    if (std::find(std::begin(symbolsOfSlot), std::end(symbolsOfSlot), format.symbols) == std::end(symbolsOfSlot)) {
        return "frame format " + format.name + " has " + std::to_string(format.symbols) +
               " symbols in a slot; it takes 12 or 14";
    }
    if (format.slots.size() != slotsOfFrame || format.slots.find_first_not_of("DSU") != std::string::npos) {
        return "frame format " + format.name + " has the slots \"" + format.slots +
               "\"; it takes 10 letters of D, S, U";
    }
    // Without a special slot between them the uplink would begin while the last downlink is still in the air.
    if (format.slots.find("DU") != std::string::npos) {
        return "frame format " + format.name + " goes from D to U without an S between; slots: " + format.slots;
    }
    // One by one: a sum could wrap around.
    const bool fits = format.specialDownlink <= format.symbols && format.specialGuard <= format.symbols &&
                      format.specialUplink <= format.symbols &&
                      format.specialDownlink + format.specialGuard + format.specialUplink == format.symbols;
    if (!fits || format.specialGuard == 0) {
        return "frame format " + format.name + " has a special slot of " + std::to_string(format.specialDownlink) +
               " + " + std::to_string(format.specialGuard) + " + " + std::to_string(format.specialUplink) +
               " symbols; with a guard of at least 1 it takes " + std::to_string(format.symbols) + " in all";
    }
    return {};
}

unsigned int downlinkSymbols(const FrameFormat &format) {
    const auto count = [&format](char slot) {
        return static_cast<unsigned int>(std::count(format.slots.begin(), format.slots.end(), slot));
    };
    return count('D') * format.symbols + count('S') * format.specialDownlink;
}

} // namespace radio
