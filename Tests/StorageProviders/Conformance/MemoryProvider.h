/// @file
/// A provider of the tests' own, in memory; written apart from the others on purpose.
#pragma once

#include "ProviderUnderTest.h"

namespace test {

class MemoryProvider : public ProviderUnderTest {
public:
    MemoryProvider();
    ~MemoryProvider() override;
    MemoryProvider(const MemoryProvider &) = delete;
    MemoryProvider &operator=(const MemoryProvider &) = delete;

    IStorageProvider *table() override;
    EAFResult setFile(unsigned long locationId, const std::string &file) override;
    EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) override;
    void close() override;
    bool keepsFiles() const override { return false; }
};

} // namespace test
