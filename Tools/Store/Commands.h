/// @file
/// What the program does, one function a command. Each throws a Fault where it can not.
#pragma once

#include <optional>
#include <string>

#include "ExitCode.h"
#include "Stores.h"

struct ListOptions {
    bool isJson = false;
    bool isWhole = false; ///< Long values are not cut.
};

struct SetOptions {
    std::string create; ///< Type of a value that is not there yet; empty: it must be.
    std::optional<std::uint32_t> count;
};

ExitCode listValues(const StoreName &store, const ListOptions &options);
ExitCode getValue(const StoreName &store, const std::string &path);
ExitCode setValue(const StoreName &store, const std::string &path, const std::string &text, const SetOptions &options);
ExitCode dump(const StoreName &store, const std::string &file);
ExitCode load(const StoreName &store, const std::string &file, std::optional<Kind> kind);
ExitCode diff(const StoreName &a, const StoreName &b);
ExitCode verify(const StoreName &store);
ExitCode convert(const StoreName &from, const StoreName &to, Kind kind);
