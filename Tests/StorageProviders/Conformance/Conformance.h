/// @file
/// The suite's fixture.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Contents.h"
#include "ProviderUnderTest.h"
#include "TraceRecorder.h"

namespace test {

class Conformance : public testing::Test {
protected:
    Conformance() : provider(makeProvider()) {
        TraceRecorder::reset();
        begin();
    }

    /// Names the stores and initialises them.
    void begin() {
        EXPECT_EQ(eAF_S_OK, provider->setFile(1, folder.file("one.store")));
        EXPECT_EQ(eAF_S_OK, provider->setFile(2, folder.file("two.store")));
        EXPECT_EQ(eAF_S_OK, provider->table()->Initialize(1));
        EXPECT_EQ(eAF_S_OK, provider->table()->Initialize(2));
    }

    /// As after the end of the process and a new start.
    void restart() {
        provider->close();
        begin();
    }

    SStorageStatistics statistics(unsigned long locationId = 1) {
        SStorageStatistics result{};
        EXPECT_EQ(eAF_S_OK, provider->statistics(locationId, &result));
        return result;
    }

    /// The texts that the provider's own trace object logged at a level or below it.
    static std::vector<std::string> told(std::int32_t level) {
        std::vector<std::string> texts;
        for (const DomainTrace &record : TraceRecorder::domainRecords()) {
            if (record.level <= level && record.domain != "ZEL.AF.STOR.ACC") {
                texts.push_back(record.text);
            }
        }
        return texts;
    }

    TemporaryFolder folder;
    std::unique_ptr<ProviderUnderTest> provider;
};

} // namespace test
