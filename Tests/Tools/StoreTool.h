/// @file
/// zaf-store as its users run it: as a program, in a folder of the test's own, on stores of the real classes.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "VariableStore.h"

namespace storetool {

using storage::Access;
using storage::StoredValue;
using storage::StoredValues;

struct Outcome {
    int exitCode;
    std::string out;
    std::string err;
};

std::string bytesOf(const std::string &file);

template <class Element>
StoredValue single(const std::string &path, EVariableType type, Element element) {
    StoredValue value{path, type, 1, std::vector<unsigned char>(sizeof element)};
    std::memcpy(value.content.data(), &element, sizeof element);
    return value;
}

template <class Element>
StoredValue array(const std::string &path, EVariableType type, const std::vector<Element> &elements) {
    StoredValue value{path, type, static_cast<std::uint32_t>(elements.size()),
                      std::vector<unsigned char>(elements.size() * sizeof(Element))};
    if (!elements.empty()) {
        std::memcpy(value.content.data(), elements.data(), value.content.size());
    }
    return value;
}

StoredValue text(const std::string &path, const std::string &content);

StoredValues radio();

/// A value of each type, with the extremes.
StoredValues everySort();

class StoreTool : public testing::Test {
protected:
    StoreTool();
    ~StoreTool() override;
    StoreTool(const StoreTool &) = delete;
    StoreTool &operator=(const StoreTool &) = delete;

    std::string in(const std::string &file) const { return m_folder + "/" + file; }

    /// Runs commands of the shell in the test's folder.
    Outcome run(const std::string &arguments) const;
    Outcome tool(const std::string &arguments) const { return run("zaf-store " + arguments); }

    std::unique_ptr<storage::VariableStore> open(const std::string &file, bool isSqlite, Access access,
                                                 unsigned long location = 1) const;
    void make(const std::string &file, bool isSqlite, const StoredValues &values, unsigned long location = 1) const;
    StoredValues valuesIn(const std::string &file, bool isSqlite, unsigned long location = 1) const;

    /// Turns the bits of the last two thirds.
    void damage(const std::string &file) const;

    /// Runs SQL on a database, as whoever mends one by hand.
    void mend(const std::string &file, const std::string &sql) const;

    /// Leaves a database as a host does that is killed while it stores the value of a path.
    void cutShort(const std::string &file, const std::string &path) const;

private:
    std::string m_folder;
};

class EitherKind : public StoreTool, public testing::WithParamInterface<bool> {
protected:
    bool isSqlite = GetParam();
    std::string kind = GetParam() ? "sqlite" : "file";
    std::string otherKind = GetParam() ? "file" : "sqlite";
};

} // namespace storetool
