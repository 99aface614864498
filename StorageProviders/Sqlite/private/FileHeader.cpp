#include "FileHeader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace storage {
namespace {

using namespace std::literals;

constexpr std::string_view sqliteMagic = "SQLite format 3\0"sv;
constexpr std::string_view tableText = "CREATE TABLE variable("sv;
constexpr std::size_t sizeOfHeader = 100;
constexpr std::size_t positionOfVersion = 60;
constexpr std::size_t positionOfApplication = 68;

std::uint32_t bigEndianAt(std::string_view bytes, std::size_t position) {
    std::uint32_t word = 0;
    for (std::size_t i = 0; i < sizeof(word); ++i) {
        word = word << 8 | static_cast<unsigned char>(bytes[position + i]);
    }
    return word;
}

/// Whether a file without SQLite's first bytes is a store whose first bytes were lost. A page of zeros is what a
/// power cut leaves of a file that had just been begun.
bool looksLikeDamagedStore(std::string_view bytes, std::uint32_t applicationId) {
    return applicationId == storeApplicationId || bytes.find(tableText) != std::string_view::npos ||
           bytes.find_first_not_of('\0') == std::string_view::npos;
}

FileHeader headerOf(std::string_view bytes) {
    FileHeader header;
    if (bytes.empty()) {
        return header;
    }
    const std::string_view magic = bytes.substr(0, sqliteMagic.size());
    header.isSqlite = sqliteMagic.substr(0, magic.size()) == magic;
    header.owner = FileHeader::Owner::other;
    if (bytes.size() < sizeOfHeader) {
        const bool isZeros = bytes.find_first_not_of('\0') == std::string_view::npos;
        header.owner = header.isSqlite || isZeros ? FileHeader::Owner::us : FileHeader::Owner::other;
        return header;
    }
    header.applicationId = bigEndianAt(bytes, positionOfApplication);
    header.formatVersion = bigEndianAt(bytes, positionOfVersion);
    if (!header.isSqlite) {
        header.owner =
            looksLikeDamagedStore(bytes, header.applicationId) ? FileHeader::Owner::us : FileHeader::Owner::other;
    } else if (header.applicationId == storeApplicationId) {
        header.owner = header.formatVersion == storeFormatVersion ? FileHeader::Owner::us : FileHeader::Owner::newer;
    }
    return header;
}

} // namespace

int readHeader(sqlite3 *database, FileHeader &header) {
    sqlite3_file *file = nullptr;
    const int found = sqlite3_file_control(database, nullptr, SQLITE_FCNTL_FILE_POINTER, &file);
    if (found != SQLITE_OK) {
        return found;
    }
    if (file == nullptr || file->pMethods == nullptr) {
        return SQLITE_CANTOPEN;
    }
    sqlite3_int64 fileSize = 0;
    const int sized = file->pMethods->xFileSize(file, &fileSize);
    if (sized != SQLITE_OK) {
        return sized;
    }
    std::array<char, 4096> bytes{};
    const auto size = static_cast<std::size_t>(std::min<sqlite3_int64>(fileSize, bytes.size()));
    if (size > 0) {
        const int read = file->pMethods->xRead(file, bytes.data(), static_cast<int>(size), 0);
        if (read != SQLITE_OK) {
            return read;
        }
    }
    header = headerOf({bytes.data(), size});
    return SQLITE_OK;
}

} // namespace storage
