#include "FileStoreFixture.h"

#include <zlib.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <stdexcept>

#include "VariableType.h"

namespace fs = std::filesystem;

void storage::PrintTo(const StoredValue &value, std::ostream *out) {
    *out << value.path << ' ' << typeName(value.type) << '[' << value.noOfElements << ']';
    for (const unsigned char byte : value.content) {
        *out << ' ' << static_cast<unsigned>(byte);
    }
}

namespace test {

std::vector<std::string> Messages::complaints() {
    std::vector<std::string> all = errors();
    all.insert(all.end(), warnings().begin(), warnings().end());
    return all;
}

TemporaryFolder::TemporaryFolder() {
    // In memory where there is such a place: some tests make thousands of files.
    for (const std::string &place : {std::string("/dev/shm"), fs::canonical(fs::temp_directory_path()).string()}) {
        std::string pattern = place + "/zelaf-file-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) {
            m_name = pattern;
            return;
        }
    }
    throw std::runtime_error("no temporary folder");
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(m_name, ignored);
}

TemporaryFolder::Files TemporaryFolder::files() const {
    Files result;
    for (const auto &entry : fs::directory_iterator(m_name)) {
        if (entry.is_regular_file() && entry.path().extension() != ".lock") {
            result[entry.path().filename().string()] = bytesOf(entry.path().string());
        }
    }
    return result;
}

void TemporaryFolder::replaceFiles(const Files &files) const {
    for (const auto &entry : fs::directory_iterator(m_name)) {
        fs::remove(entry.path());
    }
    for (const auto &[name, bytes] : files) {
        writeBytes(file(name), bytes);
    }
}

EAFResult FileStoreFixture::write(const storage::StoredValues &values) {
    storage::FileStore store(file);
    const EAFResult opened = store.open(storage::Access::readWrite, messages);
    return opened >= eAF_E_FAILED ? opened : store.write(values, messages);
}

storage::StoredValues FileStoreFixture::read(EAFResult &code, storage::Access access) {
    storage::FileStore store(file);
    storage::StoredValues values;
    code = store.open(access, messages);
    if (code < eAF_E_FAILED) {
        code = store.read(values, messages);
    }
    return values;
}

std::int32_t FileStoreFixture::readOne(storage::Access access) {
    EAFResult code = eAF_E_FAILED;
    for (const storage::StoredValue &found : read(code, access)) {
        if (found.path == "V" && code == eAF_S_OK) {
            std::int32_t content = 0;
            std::memcpy(&content, found.content.data(), sizeof content);
            return content;
        }
    }
    return code == eAF_S_OK ? -1 : -2;
}

storage::StoredValue FileStoreFixture::value(std::int32_t content, const std::string &path) {
    storage::StoredValue result{path, TYPE_INT32, 1, std::vector<unsigned char>(sizeof content)};
    std::memcpy(result.content.data(), &content, sizeof content);
    return result;
}

std::string bytesOf(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void writeBytes(const std::string &file, const std::string &bytes) {
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << bytes;
    if (!stream.flush()) {
        throw std::runtime_error("could not write " + file);
    }
}

std::size_t openDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

void setVersion(storage::Bytes &bytes, std::uint32_t version) {
    std::memcpy(bytes.data() + 12, &version, sizeof version);
    const auto sum = static_cast<std::uint32_t>(crc32(0, bytes.data(), 40));
    std::memcpy(bytes.data() + 40, &sum, sizeof sum);
}

} // namespace test
