/// @file
/// The paths that a walk over a database comes through.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "BoundedText.h"
#include "CStorageObject.h"

namespace af {

/// A path as the table knows it: what stands behind its 511th byte counts, but is not kept.
class CutPath {
public:
    void append(const char *part) {
        appendBounded(m_text, std::min(m_length, sizeof m_text - 1), part);
        m_length += std::strlen(part);
    }
    /// What is appended next ends the text there.
    void cutTo(std::size_t length) { m_length = length; }
    const char *text() const { return m_text; }
    std::size_t length() const { return m_length; }

private:
    char m_text[512] = {};
    std::size_t m_length = 0;
};

/// The path of an object, of any length. It takes memory only where objects lie deeper inside one another than in any
/// host: a walk must not need some where there is none, or a store could not even say what failed.
class ObjectPath {
public:
    /// Sixteen objects inside one another, of the longest names.
    static constexpr std::size_t usualSize = 16 * sizeof CStorageObject::name;

    /// @throws std::bad_alloc; the path is as it was.
    void append(std::string_view part) {
        if (m_longer.empty() && part.size() < sizeof m_usual - m_length) {
            m_length = appendBounded(m_usual, m_length, part);
            return;
        }
        std::string longer = m_longer.empty() ? std::string(m_usual, m_length) : m_longer;
        longer += part;
        m_longer.swap(longer);
        m_length = m_longer.size();
    }
    void cutTo(std::size_t length) {
        if (!m_longer.empty()) {
            m_longer.resize(length);
        }
        m_usual[std::min(length, sizeof m_usual - 1)] = '\0';
        m_length = length;
    }
    const char *text() const { return m_longer.empty() ? m_usual : m_longer.c_str(); }
    std::size_t length() const { return m_length; }

private:
    char m_usual[usualSize] = {};
    std::size_t m_length = 0;
    std::string m_longer{}; ///< Holds the path as soon as it did not fit.
};

} // namespace af
