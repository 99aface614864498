/// @file
/// The command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace radio {

enum class StorageKind { Sqlite, File };

struct Options {
    int32_t port = 7400;
    bool stay = false;
    bool stopAtFirstFailure = false;
    bool restartCold = false;
    uint32_t restartChannel = 2;
    std::vector<std::pair<uint32_t, uint32_t>> failures; ///< Module and phase that it fails in.
    std::string frameFormatPath;
    std::string firmwarePath;
    std::string firmwareToWrite; ///< Not empty: write an image to this file and do nothing else.
    std::string resetRecordPath;
    StorageKind storage = StorageKind::Sqlite;
    std::string storeFolder;  ///< Empty: a temporary one.
    bool newFirmware = false; ///< As if of the next release, which knows one parameter more.
    bool keepStoring = false;
};

/// Prints help or what is wrong by itself.
/// @param exitCode  what to end the process with when nothing is returned.
std::optional<Options> parseOptions(int argc, const char *const *argv, int &exitCode);

} // namespace radio
