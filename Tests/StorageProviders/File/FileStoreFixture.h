/// @file
/// A file store in a folder of its own.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "FileStore.h"

namespace test {

/// Keeps what a store reports.
class Messages : public storage::Report {
public:
    void add(storage::Severity severity, const std::string &text) override {
        if (severity != storage::Severity::information) {
            texts.push_back(text);
        }
    }
    std::vector<std::string> texts;
};

class FileStoreFixture : public testing::Test {
protected:
    FileStoreFixture();
    ~FileStoreFixture() override;
    FileStoreFixture(const FileStoreFixture &) = delete;
    FileStoreFixture &operator=(const FileStoreFixture &) = delete;

    std::string in(const std::string &name) const { return folder + "/" + name; }

    /// Writes values with a store of its own.
    EAFResult write(const storage::StoredValues &values);
    /// Reads with a store of its own. @param code  receives the code of opening or reading.
    storage::StoredValues read(EAFResult &code);
    std::int32_t readOne(EAFResult &code); ///< The value of "V"; -1 when there is none.

    static storage::StoredValue value(std::int32_t content, const std::string &path = "V");

    /// Every file of the folder with its bytes, the lock file left out.
    std::map<std::string, std::string> files() const;
    void putBack(const std::map<std::string, std::string> &contents) const;

    std::string folder;
    std::string file;
    Messages messages;
};

std::string bytesOf(const std::string &file);
void writeBytes(const std::string &file, const std::string &bytes);

} // namespace test
