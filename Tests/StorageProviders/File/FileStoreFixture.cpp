#include "FileStoreFixture.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace test {

namespace fs = std::filesystem;

FileStoreFixture::FileStoreFixture() {
    std::string pattern = (fs::temp_directory_path() / "file-store-XXXXXX").string();
    EXPECT_NE(nullptr, mkdtemp(pattern.data()));
    folder = pattern;
    file = in("s");
}

FileStoreFixture::~FileStoreFixture() {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
}

EAFResult FileStoreFixture::write(const storage::StoredValues &values) {
    storage::FileStore store(file);
    const EAFResult opened = store.open(storage::Access::readWrite, messages);
    return opened >= eAF_E_FAILED ? opened : store.write(values, messages);
}

storage::StoredValues FileStoreFixture::read(EAFResult &code) {
    storage::FileStore store(file);
    storage::StoredValues values;
    code = store.open(storage::Access::readWrite, messages);
    if (code < eAF_E_FAILED) {
        code = store.read(values, messages);
    }
    return values;
}

std::int32_t FileStoreFixture::readOne(EAFResult &code) {
    for (const storage::StoredValue &found : read(code)) {
        if (found.path == "V") {
            std::int32_t content = 0;
            std::memcpy(&content, found.content.data(), sizeof content);
            return content;
        }
    }
    return -1;
}

storage::StoredValue FileStoreFixture::value(std::int32_t content, const std::string &path) {
    storage::StoredValue result{path, TYPE_INT32, 1, std::vector<unsigned char>(sizeof content)};
    std::memcpy(result.content.data(), &content, sizeof content);
    return result;
}

std::map<std::string, std::string> FileStoreFixture::files() const {
    std::map<std::string, std::string> result;
    for (const auto &entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".lock") {
            result[entry.path().filename().string()] = bytesOf(entry.path().string());
        }
    }
    return result;
}

void FileStoreFixture::putBack(const std::map<std::string, std::string> &contents) const {
    for (const auto &entry : fs::directory_iterator(folder)) {
        fs::remove(entry.path());
    }
    for (const auto &[name, bytes] : contents) {
        writeBytes(in(name), bytes);
    }
}

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void writeBytes(const std::string &file, const std::string &bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

} // namespace test
