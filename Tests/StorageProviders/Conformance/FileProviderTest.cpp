#include "CFileStorage.h"
#include "ProviderUnderTest.h"

namespace {

class FileProvider : public test::ProviderUnderTest {
public:
    ~FileProvider() override { CFileStorage_UnInitialize(); }

    IStorageProvider *table() override { return CFileStorage_GetProvider(); }
    EAFResult setFile(unsigned long locationId, const std::string &file) override {
        return CFileStorage_SetFile(locationId, file.c_str());
    }
    EAFResult statistics(unsigned long locationId, SStorageStatistics *statistics) override {
        return CFileStorage_GetStatistics(locationId, statistics);
    }
    void close() override { CFileStorage_UnInitialize(); }
    bool sharesFiles() const override { return false; }
};

} // namespace

std::unique_ptr<test::ProviderUnderTest> test::makeProvider() {
    return std::make_unique<FileProvider>();
}
