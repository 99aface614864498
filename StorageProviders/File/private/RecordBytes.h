/// @file
/// How a store's bytes are put together and taken apart.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "FileFormat.h"

namespace storage {

constexpr std::size_t headerSize = 44;
constexpr std::size_t recordOverhead = 20; ///< Length, type, count, path length, checksum.
constexpr std::size_t trailerSize = 4;

inline std::uint32_t checksum(const unsigned char *bytes, std::size_t length) {
    return static_cast<std::uint32_t>(crc32_z(0, bytes, length));
}

/// Fills bytes of a size that was told before.
class Writer {
public:
    explicit Writer(std::size_t size) : m_bytes(size) {}

    template <class Number>
    void add(Number number) {
        add(&number, sizeof number);
    }
    void add(const void *bytes, std::size_t length) {
        if (length != 0) {
            std::memcpy(m_bytes.data() + m_end, bytes, length);
            m_end += length;
        }
    }
    /// The checksum of everything since a place.
    void addChecksum(std::size_t since) { add(checksum(m_bytes.data() + since, m_end - since)); }

    void addHeader(std::uint32_t noOfRecords, std::uint64_t generation);
    void addRecord(const ValueView &value);

    Bytes take() { return std::move(m_bytes); }

private:
    Bytes m_bytes;
    std::size_t m_end = 0;
};

/// Reads within bounds: what is asked for beyond them is refused.
class Reader {
public:
    Reader(const unsigned char *begin, std::size_t size, bool isSwapped = false)
        : m_at(begin), m_left(size), m_isSwapped(isSwapped) {}

    template <class Number>
    bool read(Number &number) {
        if (m_left < sizeof number) {
            return false;
        }
        std::memcpy(&number, m_at, sizeof number);
        if (m_isSwapped) {
            auto *bytes = reinterpret_cast<unsigned char *>(&number);
            std::reverse(bytes, bytes + sizeof number);
        }
        skip(sizeof number);
        return true;
    }
    bool take(std::size_t length, const unsigned char *&begin) {
        if (m_left < length) {
            return false;
        }
        begin = m_at;
        skip(length);
        return true;
    }
    void swapFromHere() { m_isSwapped = true; }
    bool isSwapped() const { return m_isSwapped; }
    const unsigned char *at() const { return m_at; }
    std::size_t left() const { return m_left; }

private:
    void skip(std::size_t length) {
        m_at += length;
        m_left -= length;
    }

    const unsigned char *m_at;
    std::size_t m_left;
    bool m_isSwapped;
};

/// A record where it lies, its content in the byte order of the file.
struct Record {
    std::string_view path;
    EVariableType type = TYPE_INT8;
    std::uint32_t noOfElements = 0;
    const unsigned char *content = nullptr;
    std::size_t size = 0;                   ///< Of the content.
    const unsigned char *checked = nullptr; ///< What the checksum is of.
    std::size_t sizeOfChecked = 0;
    std::uint32_t sum = 0;
};

/// @return why the record is not whole, but for its checksum; empty when it is.
std::string readRecord(Reader &reader, Record &record);

} // namespace storage
