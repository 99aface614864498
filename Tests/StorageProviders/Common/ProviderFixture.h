/// @file
/// A provider of scripted stores, and one location's variables.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ScriptedStore.h"
#include "StorageTree.h"
#include "TraceRecorder.h"

namespace test {

class ProviderFixture : public testing::Test {
protected:
    ProviderFixture() {
        CDatabase_Construct(&database, 32);
        object = tree.objectIn(region, "Radio");
        EXPECT_EQ(eAF_S_OK, CDatabase_AddRegion(&database, region));
        EXPECT_EQ(eAF_S_OK, provider.setFile(1, "cfg.store"));
        TraceRecorder::reset();
    }
    ~ProviderFixture() override { CDatabase_Destruct(&database); }
    ProviderFixture(const ProviderFixture &) = delete;
    ProviderFixture &operator=(const ProviderFixture &) = delete;

    CVariable *gain(std::int32_t value, const std::int32_t *defaultValue = nullptr) {
        return tree.integer(object, "Gain", value, defaultValue);
    }
    static void set(CVariable *variable, std::int32_t value) {
        *static_cast<std::int32_t *>(variable->content) = value;
    }

    /// Puts an integer of another run into the store.
    void keep(const std::string &path, std::int32_t value) {
        storage::StoredValue stored{path, TYPE_INT32, 1, std::vector<unsigned char>(sizeof value)};
        std::memcpy(stored.content.data(), &value, sizeof value);
        disk->values[path] = stored;
    }
    std::int32_t kept(const std::string &path) const {
        std::int32_t value = 0;
        const auto found = disk->values.find(path);
        EXPECT_NE(disk->values.end(), found) << path;
        if (found != disk->values.end()) {
            EXPECT_EQ(sizeof value, found->second.content.size()) << path;
            std::memcpy(&value, found->second.content.data(), sizeof value);
        }
        return value;
    }

    SStorageStatistics statistics() const {
        SStorageStatistics result{};
        EXPECT_EQ(eAF_S_OK, provider.statistics(1, &result));
        return result;
    }

    /// What the provider said at a level since the last reset.
    static std::vector<std::string> said(std::int32_t level) {
        std::vector<std::string> texts;
        for (const DomainTrace &record : TraceRecorder::domainRecords()) {
            if (record.domain == "TEST.STORE" && record.level == level) {
                texts.push_back(record.text);
            }
        }
        return texts;
    }
    static std::vector<std::string> errors() { return said(1); }
    static std::vector<std::string> warnings() { return said(3); }
    static std::vector<std::string> informations() { return said(5); }

    std::shared_ptr<Disk> disk = std::make_shared<Disk>();
    VoxTrace trace{"TEST.STORE", 5, 256};
    storage::StorageProvider provider{trace, [this](unsigned long /*locationId*/, const std::string &file) {
                                          return std::make_unique<ScriptedStore>(file, disk);
                                      }};
    StorageTree tree;
    CDatabase database{};
    CStorageRegion *region = tree.region("Cfg");
    CStorageObject *object = nullptr;
};

} // namespace test
