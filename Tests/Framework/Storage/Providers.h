/// @file
/// Providers that note their calls and answer what they are told to.
#pragma once

#include <string>
#include <vector>

#include "CStorageManager.h"

namespace test {

inline std::vector<std::string> &providerCalls() {
    static std::vector<std::string> calls;
    return calls;
}

/// One provider for each number.
template <int number>
struct NotingProvider {
    static inline EAFResult answer = eAF_S_OK;
    static inline unsigned long failingLocation = 0; ///< 0: the answer is for all.
    static inline CDatabase *lastDatabase = nullptr;

    static EAFResult note(const char *operation, unsigned long locationId, unsigned long data) {
        providerCalls().push_back(std::to_string(number) + operation + std::to_string(locationId) + "," +
                                  std::to_string(data));
        return failingLocation == 0 || failingLocation == locationId ? answer : eAF_S_OK;
    }
    static EAFResult initialize(unsigned long locationId) { return note(".Initialize ", locationId, 0); }
    static EAFResult reserve(unsigned long locationId, unsigned long size) {
        return note(".Reserve ", locationId, size);
    }
    static EAFResult storeAll(unsigned long locationId, CDatabase *database, unsigned long data) {
        lastDatabase = database;
        return note(".StoreAll ", locationId, data);
    }
    static EAFResult retrieveAll(unsigned long locationId, CDatabase *database, unsigned long data) {
        lastDatabase = database;
        return note(".RetrieveAll ", locationId, data);
    }
    static inline IStorageProvider table{initialize, reserve, storeAll, retrieveAll};

    static void reset() {
        answer = eAF_S_OK;
        failingLocation = 0;
        lastDatabase = nullptr;
    }
};

using FirstProvider = NotingProvider<1>;
using SecondProvider = NotingProvider<2>;

inline void resetProviders() {
    providerCalls().clear();
    FirstProvider::reset();
    SecondProvider::reset();
}

} // namespace test
