#include "CSqliteStorage.h"
#include "ProviderUnderTest.h"

namespace {

class SqliteProvider : public test::ProviderUnderTest {
public:
    ~SqliteProvider() override { CSqliteStorage_UnInitialize(); }

    IStorageProvider *table() override { return CSqliteStorage_GetProvider(); }
    EAFResult setFile(unsigned long locationId, const std::string &file) override {
        return CSqliteStorage_SetFile(locationId, file.c_str());
    }
    EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) override {
        return CSqliteStorage_GetStatistics(locationId, statistics);
    }
    void close() override { CSqliteStorage_UnInitialize(); }
    bool sharesFiles() const override { return true; }
};

} // namespace

std::unique_ptr<test::ProviderUnderTest> test::makeProvider() {
    return std::make_unique<SqliteProvider>();
}
