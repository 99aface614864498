#include "RefusedMemory.h"

#include <sqlite3.h>

namespace {

struct Refusal {
    bool isArmed = false;
    bool isForEver = false;
    bool isRefused = false;
    std::uint32_t succeeding = 0;

    bool now() {
        if (!isArmed || (isRefused && !isForEver)) {
            return false;
        }
        isRefused = isRefused || succeeding-- == 0;
        return isRefused;
    }
};

thread_local Refusal sqliteRefusal;
sqlite3_mem_methods usual;

void *sqliteMalloc(int size) {
    return sqliteRefusal.now() ? nullptr : usual.xMalloc(size);
}

void *sqliteRealloc(void *block, int size) {
    return sqliteRefusal.now() ? nullptr : usual.xRealloc(block, size);
}

} // namespace

namespace test {

RefusedMemory::RefusedMemory(Allocator allocator, std::uint32_t howManySucceed, bool everyLaterOne) {
    if (allocator == Allocator::sqlite) {
        sqliteRefusal = {true, everyLaterOne, false, howManySucceed};
    } else {
        m_cxx.emplace(static_cast<int>(howManySucceed),
                      everyLaterOne ? RefusedNew::Later::failToo : RefusedNew::Later::succeed);
    }
}

RefusedMemory::~RefusedMemory() {
    sqliteRefusal.isArmed = false;
}

bool RefusedMemory::wasRefused() const {
    return m_cxx.has_value() ? m_cxx->wasRefused() : sqliteRefusal.isRefused;
}

void replaceSqliteAllocator() {
    sqlite3_config(SQLITE_CONFIG_GETMALLOC, &usual);
    static sqlite3_mem_methods methods = usual;
    methods.xMalloc = sqliteMalloc;
    methods.xRealloc = sqliteRealloc;
    sqlite3_config(SQLITE_CONFIG_MALLOC, &methods);
}

} // namespace test
