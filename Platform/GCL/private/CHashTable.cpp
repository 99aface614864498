#include "CHashTable.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace {

// Hash

constexpr std::uint64_t firstSalt = 0x9E3779B97F4A7C15;
constexpr std::uint64_t secondSalt = 0xC2B2AE3D27D4EB4F;

template <class Word>
std::uint64_t wordAt(const char *text) {
    Word word{};
    std::memcpy(&word, text, sizeof word);
    return word;
}

/// Each bit of the result depends on every bit of both.
std::uint64_t mixed(std::uint64_t a, std::uint64_t b) {
#ifdef __SIZEOF_INT128__
    __extension__ using Product = unsigned __int128;
    const Product product = static_cast<Product>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
#else
    std::uint64_t word = (a ^ (b << 32 | b >> 32)) * firstSalt;
    word = (word ^ word >> 32) * secondSalt;
    return word ^ word >> 29;
#endif
}

/// Of a path in a few steps: look-ups hash theirs each time.
std::uint64_t hashOf(std::string_view text) {
    const char *at = text.data();
    std::size_t left = text.size();
    std::uint64_t hash = text.size() ^ secondSalt;
    for (; left > 16; left -= 16, at += 16) {
        hash = mixed(wordAt<std::uint64_t>(at) ^ firstSalt, wordAt<std::uint64_t>(at + 8) ^ hash);
    }
    std::uint64_t head = 0;
    std::uint64_t tail = 0;
    if (left >= 8) { // the two words may overlap
        head = wordAt<std::uint64_t>(at);
        tail = wordAt<std::uint64_t>(at + left - 8);
    } else if (left >= 4) {
        head = wordAt<std::uint32_t>(at);
        tail = wordAt<std::uint32_t>(at + left - 4);
    } else if (left > 0) {
        head = wordAt<std::uint8_t>(at) << 8 | wordAt<std::uint8_t>(at + left / 2);
        tail = wordAt<std::uint8_t>(at + left - 1);
    }
    return mixed(mixed(head ^ firstSalt, tail ^ hash) ^ text.size(), secondSalt);
}

// Entries

/// The key's bytes stand behind it.
struct Entry {
    void *value;
    std::uint32_t length;

    const char *key() const { return reinterpret_cast<const char *>(this + 1); }
    bool has(std::string_view text) const {
        return length == text.size() && std::memcmp(key(), text.data(), text.size()) == 0;
    }
};

/// Room for entries, given up all at once: no entry is ever removed from a table.
class Arena {
public:
    Arena() = default;
    ~Arena() {
        while (m_chunk != nullptr) {
            ::operator delete(std::exchange(m_chunk, m_chunk->next));
        }
    }
    Arena(const Arena &) = delete;
    Arena &operator=(const Arena &) = delete;

    /// @return null without memory.
    Entry *make(std::string_view key, void *value) {
        if (key.size() > std::numeric_limits<std::uint32_t>::max() - chunkSize) {
            return nullptr;
        }
        const std::size_t size = (sizeof(Entry) + key.size() + alignof(Entry) - 1) / alignof(Entry) * alignof(Entry);
        if (size > m_left && !grow(size)) {
            return nullptr;
        }
        auto *entry = new (m_free) Entry{value, static_cast<std::uint32_t>(key.size())};
        std::memcpy(m_free + sizeof(Entry), key.data(), key.size());
        m_free += size;
        m_left -= size;
        return entry;
    }

private:
    struct alignas(Entry) Chunk {
        Chunk *next;
    };
    static constexpr std::size_t chunkSize = 4096 - sizeof(Chunk) - 2 * sizeof(void *); // a page with the heap's words

    bool grow(std::size_t size) {
        const std::size_t room = size > chunkSize ? size : chunkSize;
        void *memory = ::operator new(sizeof(Chunk) + room, std::nothrow);
        if (memory == nullptr) {
            return false;
        }
        m_chunk = new (memory) Chunk{m_chunk};
        m_free = static_cast<char *>(memory) + sizeof(Chunk);
        m_left = room;
        return true;
    }

    Chunk *m_chunk = nullptr;
    char *m_free = nullptr;
    std::size_t m_left = 0;
};

// Places

using Group = std::uint64_t;
constexpr std::size_t groupSize = sizeof(Group);
constexpr Group lowBits = 0x0101010101010101;
constexpr Group highBits = 0x8080808080808080;

/// The high bit tells a taken place from a free one, the others are of the key's hash.
std::uint8_t tagOf(std::uint64_t hash) {
    return static_cast<std::uint8_t>(0x80 | hash >> 57);
}

/// The bytes of a group as a number whose lowest byte is the first, on every machine.
Group groupAt(const std::uint8_t *tags) {
    Group group = 0;
    std::memcpy(&group, tags, sizeof group);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    group = __builtin_bswap64(group);
#endif
    return group;
}

/// A high bit for each byte that equals the tag, and at times for one behind it that does not.
Group matches(Group group, std::uint8_t tag) {
    const Group differences = group ^ lowBits * tag;
    return (differences - lowBits) & ~differences & highBits;
}

Group freePlaces(Group group) {
    return ~group & highBits;
}

std::size_t firstOf(Group bits) {
    return static_cast<std::size_t>(__builtin_ctzll(bits)) / 8;
}

/// Groups are looked at in an order that reaches each: by one, by two, by three further on.
class Probe {
public:
    Probe(std::uint64_t hash, std::size_t noOfGroups)
        : m_mask(noOfGroups - 1), m_group(static_cast<std::size_t>(hash) & m_mask) {}
    std::size_t place() const { return m_group * groupSize; }
    void next() { m_group = (m_group + ++m_step) & m_mask; }

private:
    std::size_t m_mask;
    std::size_t m_group;
    std::size_t m_step = 0;
};

} // namespace

/// Open addressing. A look-up reads the tags of eight places at once, and follows the pointer of the one that matches:
/// tags of a large table stay in the processor's cache where its entries do not.
struct CHashTableContents {
    Arena arena;
    std::unique_ptr<std::uint8_t[]> tags;
    std::unique_ptr<Entry *[]> entries;
    std::size_t noOfGroups = 0; ///< A power of two, or 0.
    std::size_t count = 0;

    /// One place of eight stays free, so that every search ends.
    static constexpr std::size_t mostOf(std::size_t groups) { return groups * (groupSize - 1); }

    Entry *find(std::string_view key, std::uint64_t hash) const {
        if (noOfGroups == 0) {
            return nullptr;
        }
        const std::uint8_t tag = tagOf(hash);
        for (Probe probe(hash, noOfGroups);; probe.next()) {
            __builtin_prefetch(
                &entries[probe.place()]); // both are far away in a large table, and one is asked for first
            const Group group = groupAt(&tags[probe.place()]);
            for (Group found = matches(group, tag); found != 0; found &= found - 1) {
                const std::size_t place = probe.place() + firstOf(found);
                if (tags[place] == tag && entries[place]->has(key)) {
                    return entries[place];
                }
            }
            if (freePlaces(group) != 0) {
                return nullptr;
            }
        }
    }

    /// There is room for it, and no entry of its key.
    void add(Entry *entry, std::uint64_t hash) {
        Probe probe(hash, noOfGroups);
        Group free = freePlaces(groupAt(&tags[probe.place()]));
        while (free == 0) {
            probe.next();
            free = freePlaces(groupAt(&tags[probe.place()]));
        }
        const std::size_t place = probe.place() + firstOf(free);
        tags[place] = tagOf(hash);
        entries[place] = entry;
        ++count;
    }

    /// @return false without memory; the table is as it was.
    bool reserve(std::size_t size) {
        if (size <= mostOf(noOfGroups)) {
            return true;
        }
        std::size_t groups = noOfGroups != 0 ? noOfGroups : 1;
        while (mostOf(groups) < size) {
            if (groups > std::numeric_limits<std::size_t>::max() / (2 * groupSize * (1 + sizeof(Entry *)))) {
                return false;
            }
            groups *= 2;
        }
        CHashTableContents larger;
        larger.noOfGroups = groups;
        larger.tags.reset(new (std::nothrow) std::uint8_t[groups * groupSize]());
        larger.entries.reset(new (std::nothrow) Entry *[groups * groupSize]);
        if (larger.tags == nullptr || larger.entries == nullptr) {
            return false;
        }
        for (std::size_t place = 0; place < noOfGroups * groupSize; ++place) {
            if (tags[place] != 0) {
                larger.add(entries[place], hashOf({entries[place]->key(), entries[place]->length}));
            }
        }
        tags = std::move(larger.tags);
        entries = std::move(larger.entries);
        noOfGroups = groups;
        return true;
    }
};

uint32_t CHashTable_Construct(CHashTable *table, unsigned long size) {
    if (table == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    table->contents = nullptr;
    std::unique_ptr<CHashTableContents> contents(new (std::nothrow) CHashTableContents);
    if (contents == nullptr || !contents->reserve(size)) {
        return GCL_OUT_OF_MEMORY;
    }
    table->contents = contents.release();
    return GCL_OK;
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
    CHashTableContents &contents = *table->contents;
    const std::string_view text{key};
    const std::uint64_t hash = hashOf(text);
    if (Entry *found = contents.find(text, hash)) {
        found->value = value;
        return GCL_OK;
    }
    if (!contents.reserve(contents.count + 1)) {
        return GCL_OUT_OF_MEMORY;
    }
    Entry *entry = contents.arena.make(text, value);
    if (entry == nullptr) {
        return GCL_OUT_OF_MEMORY;
    }
    contents.add(entry, hash);
    return GCL_OK;
}

uint32_t CHashTable_Get(const CHashTable *table, const char *key, void **value) {
    if (table == nullptr || key == nullptr || value == nullptr) {
        return GCL_INVALID_ARGUMENT;
    }
    if (table->contents == nullptr) {
        return GCL_NOT_IN_LIST;
    }
    const std::string_view text{key};
    const Entry *found = table->contents->find(text, hashOf(text));
    if (found == nullptr) {
        return GCL_NOT_IN_LIST;
    }
    *value = found->value;
    return GCL_OK;
}

uint32_t CHashTable_Count(const CHashTable *table) {
    return table == nullptr || table->contents == nullptr ? 0 : static_cast<uint32_t>(table->contents->count);
}
