#include "CHashTable.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace {

struct Entry {
    std::unique_ptr<char[]> key;
    void *value;
};

std::unique_ptr<char[]> copyOf(std::string_view text) {
    auto copy = std::make_unique<char[]>(text.size());
    std::copy(text.begin(), text.end(), copy.get());
    return copy;
}

} // namespace

/// The index's keys are views of the bytes that the entries own, so that a look-up needs no memory.
struct CHashTableContents {
    std::unordered_map<std::string_view, Entry> entries;
};

uint32_t CHashTable_Construct(CHashTable *table, unsigned long size) {
    if (table == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    table->contents = nullptr;
    try {
        auto contents = std::make_unique<CHashTableContents>();
        if (size > contents->entries.max_size()) { // reserve would wrap around to a small table
            return GCL_OUT_OF_MEMORY;
        }
        contents->entries.reserve(size);
        table->contents = contents.release();
        return GCL_OK;
    } catch (const std::exception &) {
        return GCL_OUT_OF_MEMORY;
    }
}

uint32_t CHashTable_Destruct(CHashTable *table) {
    if (table == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    delete std::exchange(table->contents, nullptr);
    return GCL_OK;
}

uint32_t CHashTable_Set(CHashTable *table, const char *key, void *value) {
    if (table == nullptr || key == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    if (table->contents == nullptr) {
        return GCL_OUT_OF_MEMORY;
    }
    auto &entries = table->contents->entries;
    const std::string_view text{key};
    const auto found = entries.find(text);
    if (found != entries.end()) {
        found->second.value = value;
        return GCL_OK;
    }
    try {
        auto copy = copyOf(text);
        const std::string_view ownText{copy.get(), text.size()};
        entries.emplace(ownText, Entry{std::move(copy), value});
        return GCL_OK;
    } catch (const std::exception &) { // the index takes an entry whole or not at all
        return GCL_OUT_OF_MEMORY;
    }
}

uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value) {
    if (table == nullptr || key == nullptr || value == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    if (table->contents == nullptr) {
        return GCL_NOT_IN_LIST;
    }
    const auto &entries = table->contents->entries;
    const auto found = entries.find(std::string_view{key});
    if (found == entries.end()) {
        return GCL_NOT_IN_LIST;
    }
    *value = found->second.value;
    return GCL_OK;
}

uint32_t CHashTable_Count(const CHashTable *table) {
    if (table == nullptr || table->contents == nullptr) {
        return 0;
    }
    return static_cast<uint32_t>(table->contents->entries.size());
}
