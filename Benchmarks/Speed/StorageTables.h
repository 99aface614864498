/// @file
/// The tables from path to variable that stand beside the library's.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/strings/string_view.h>
#include <glib.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "CVariable.h"

namespace speed {

using FlatMap = absl::flat_hash_map<std::string, CVariable *>;
using OrderedMap = std::map<std::string, CVariable *, std::less<>>;

inline absl::string_view viewOf(const char *text) {
    return absl::string_view(text);
}

/// A std::unordered_map as C++17 looks it up without making a string: its keys are views of texts beside it.
class UnorderedMap {
public:
    void reserve(std::size_t size) { m_entries.reserve(size); }
    void insert(std::string_view path, CVariable *variable) {
        auto text = std::make_unique<std::string>(path);
        const std::string_view key = *text;
        m_entries.emplace(key, Entry{std::move(text), variable});
    }
    CVariable *find(const char *path) const {
        const auto found = m_entries.find(std::string_view(path));
        return found == m_entries.end() ? nullptr : found->second.variable;
    }

private:
    struct Entry {
        std::unique_ptr<std::string> text;
        CVariable *variable;
    };
    std::unordered_map<std::string_view, Entry> m_entries;
};

class GlibMap {
public:
    GlibMap() : m_table(g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr)) {}
    ~GlibMap() {
        if (m_table != nullptr) {
            g_hash_table_destroy(m_table);
        }
    }
    GlibMap(GlibMap &&other) noexcept : m_table(std::exchange(other.m_table, nullptr)) {}
    GlibMap(const GlibMap &) = delete;
    GlibMap &operator=(const GlibMap &) = delete;
    GlibMap &operator=(GlibMap &&) = delete;

    void insert(const char *path, CVariable *variable) { g_hash_table_insert(m_table, g_strdup(path), variable); }
    CVariable *find(const char *path) const { return static_cast<CVariable *>(g_hash_table_lookup(m_table, path)); }

private:
    GHashTable *m_table;
};

} // namespace speed
