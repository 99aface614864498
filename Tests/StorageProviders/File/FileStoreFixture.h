/// @file
/// A file store in a folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "FileStore.h"

namespace storage {
/// For messages of a test that failed.
void PrintTo(const StoredValue &value, std::ostream *out);
} // namespace storage

namespace test {

class Messages : public storage::Report {
public:
    void add(storage::Severity severity, const std::string &text) override { texts[severity].push_back(text); }
    const std::vector<std::string> &errors() { return texts[storage::Severity::error]; }
    const std::vector<std::string> &warnings() { return texts[storage::Severity::warning]; }
    /// Of both kinds.
    std::vector<std::string> complaints();
    void clear() { texts.clear(); }

private:
    std::map<storage::Severity, std::vector<std::string>> texts;
};

/// Removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    using Files = std::map<std::string, std::string>;

    const std::string &name() const { return m_name; }
    std::string file(const std::string &file) const { return m_name + "/" + file; }
    /// Every file with its bytes, lock files left out.
    Files files() const;
    void replaceFiles(const Files &files) const;

private:
    std::string m_name;
};

class FileStoreFixture : public testing::Test {
protected:
    std::string in(const std::string &name) const { return folder.file(name); }

    /// Writes values with a store of its own.
    EAFResult write(const storage::StoredValues &values);
    /// Reads with a store of its own. @param code  receives the code of opening or reading.
    storage::StoredValues read(EAFResult &code, storage::Access access = storage::Access::readWrite);
    /// The value of "V"; -1 when there is none, -2 when the store can not be read.
    std::int32_t readOne(storage::Access access = storage::Access::readWrite);

    static storage::StoredValue value(std::int32_t content, const std::string &path = "V");

    TemporaryFolder folder;
    std::string file = in("s");
    Messages messages;
};

std::string bytesOf(const std::string &file);
void writeBytes(const std::string &file, const std::string &bytes);
std::size_t openDescriptors();

/// Gives a packed store another format version, and its header the checksum that goes with it.
void setVersion(storage::Bytes &bytes, std::uint32_t version);

} // namespace test
