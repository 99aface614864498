/// @file
/// A folder of a test's own, values of every type, and what a store reported.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <iosfwd>
#include <string>
#include <vector>

#include "Report.h"
#include "SqliteStore.h"
#include "StoredValue.h"

namespace storage {
/// For messages of a test that failed.
void PrintTo(const StoredValue &value, std::ostream *out);
} // namespace storage

namespace test {

class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    std::string file(const std::string &name) const { return m_path + "/" + name; }
    const std::string &path() const { return m_path; }
    /// Names in it, sorted.
    std::vector<std::string> names() const;

private:
    std::string m_path;
};

class ReportRecorder : public storage::Report {
public:
    struct Line {
        storage::Severity severity;
        std::string text;
    };
    void add(storage::Severity severity, const std::string &text) override { lines.push_back({severity, text}); }

    /// The texts of a severity, one a line.
    std::string texts(storage::Severity severity) const;
    std::string errors() const { return texts(storage::Severity::error); }
    std::string warnings() const { return texts(storage::Severity::warning); }

    std::vector<Line> lines;
};

template <class Element>
storage::StoredValue valueOf(const std::string &path, EVariableType type, const std::vector<Element> &elements) {
    storage::StoredValue value{path, type, static_cast<std::uint32_t>(elements.size()), {}};
    value.content.resize(elements.size() * sizeof(Element));
    if (!elements.empty()) {
        std::memcpy(value.content.data(), elements.data(), value.content.size());
    }
    return value;
}

storage::StoredValue int32Value(const std::string &path, std::int32_t number);
storage::StoredValue stringValue(const std::string &path, const std::string &bytes);

std::string contentsOf(const std::string &file);
void writeFile(const std::string &file, const std::string &contents);

/// Ordered by path: a store's own order is not promised.
storage::StoredValues sorted(storage::StoredValues values);

/// What a command of the shell prints.
std::string outputOf(const std::string &command);

/// What the sqlite3 program answers to statements on a file.
std::string sqlite3Program(const std::string &file, const std::string &statements);

class SqliteStores : public testing::Test {
protected:
    /// What a fresh start reads, sorted; fails the test when it can not.
    storage::StoredValues stored(unsigned long locationId = 1);
    /// Makes the file with these values, closed again.
    void store(const storage::StoredValues &values, unsigned long locationId = 1);

    TemporaryFolder folder;
    std::string file = folder.file("store.db");
    ReportRecorder report;
};

} // namespace test
