// Operations on an event cache, chosen by the fuzzer, against a list.
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "CEventCache.h"
#include "FuzzInput.h"
#include "Harness.h"

namespace {

using fuzz::FuzzInput;

std::uint32_t keyFrom(FuzzInput &input) {
    static constexpr std::uint32_t edges[] = {0, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return input.oneIn(8) ? input.any(edges) : input.below(100);
}

class Walk {
public:
    explicit Walk(FuzzInput &input) : m_input(input) { construct(); }
    ~Walk() { CEventCache_Destruct(&m_cache); }
    Walk(const Walk &) = delete;
    Walk &operator=(const Walk &) = delete;

    void step() {
        switch (m_input.below(16)) {
        case 0:
            CEventCache_Destruct(&m_cache);
            FUZZ_CHECK(m_cache.entries == nullptr && m_cache.capacity == m_capacity, "Destruct");
            construct();
            break;
        case 1:
            FUZZ_CHECK(CEventCache_Add(nullptr, 1, 1) == eAF_E_INVALID_ARGUMENT, "no cache");
            break;
        case 2:
        case 3:
        case 4:
        case 5:
        case 6:
            isHit();
            break;
        default:
            add();
            break;
        }
        FUZZ_CHECK(m_cache.count == m_entries.size(), std::to_string(m_cache.count));
        FUZZ_CHECK(m_cache.next == (m_capacity != 0 ? m_added % m_capacity : 0), std::to_string(m_cache.next));
    }

private:
    using Entry = std::pair<std::uint32_t, std::uint32_t>;

    void construct() {
        m_capacity = m_input.oneIn(4) ? 64 : m_input.below(8);
        CEventCache_Construct(&m_cache, m_capacity);
        m_entries.clear();
        m_added = 0;
    }

    const Entry *find(std::uint32_t key) const {
        for (const Entry &entry : m_entries) {
            if (entry.first == key) {
                return &entry;
            }
        }
        return nullptr;
    }

    void add() {
        const std::uint32_t key = keyFrom(m_input);
        const std::uint32_t value = m_input.word();
        EAFResult expected = eAF_S_OK;
        if (m_capacity == 0) {
            expected = eAF_E_OUT_OF_MEMORY;
        } else if (find(key) != nullptr) {
            expected = eAF_I_ALREADY_CACHED;
        } else {
            m_entries.emplace_back(key, value);
            ++m_added;
            if (m_entries.size() > m_capacity) {
                m_entries.pop_front();
            }
        }
        FUZZ_CHECK(CEventCache_Add(&m_cache, key, value) == expected, std::to_string(key));
    }

    void isHit() {
        const std::uint32_t key = keyFrom(m_input);
        const Entry *entry = find(key);
        std::uint32_t value = 0xA5A5A5A5;
        FUZZ_CHECK(CEventCache_IsHit(&m_cache, key, &value) == (entry != nullptr ? 1u : 0u), std::to_string(key));
        FUZZ_CHECK(value == (entry != nullptr ? entry->second : 0), std::to_string(value));
        value = 0xA5A5A5A5;
        FUZZ_CHECK(CEventCache_IsHit(nullptr, key, &value) == 0 && value == 0xA5A5A5A5, "no cache");
    }

    FuzzInput &m_input;
    CEventCache m_cache{};
    std::uint32_t m_capacity = 0;
    std::uint32_t m_added = 0;
    std::deque<Entry> m_entries;
};

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::walkToTheEnd<Walk>(data, size);
    return 0;
}
