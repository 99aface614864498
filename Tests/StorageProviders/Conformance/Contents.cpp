#include "Contents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

namespace test {

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "stores-XXXXXX").string();
    EXPECT_NE(nullptr, mkdtemp(pattern.data()));
    m_root = pattern;
    m_name = m_root + "/stores";
    std::filesystem::permissions(m_root, std::filesystem::perms(0755)); // a test reads it as another user
    std::filesystem::create_directory(m_name);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_root, ignored);
}

std::vector<std::string> TemporaryFolder::files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(m_name)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

Firmware::Firmware(unsigned long locationId, const std::string &region) : m_locationId(locationId) {
    CDatabase_Construct(&m_database, 64);
    CStorageRegion_Construct(&m_region, region.c_str(), locationId);
    EXPECT_EQ(eAF_S_OK, CDatabase_AddRegion(&m_database, &m_region));
}

Firmware::~Firmware() {
    CDatabase_Destruct(&m_database);
}

CStorageObject *Firmware::object(const std::string &name, CStorageObject *parent) {
    m_objects.emplace_back();
    CStorageObject *added = &m_objects.back();
    CStorageObject_Construct(added, name.c_str());
    if (parent == nullptr) {
        EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(&m_region, added));
    } else {
        m_variables.emplace_back();
        CVariable_Construct(&m_variables.back(), added, TYPE_OBJECT, 1, name.c_str(), nullptr);
        EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(parent, &m_variables.back()));
    }
    return added;
}

std::vector<CStorageObject *> &Firmware::objectArray(const std::string &name, const std::vector<std::string> &elements,
                                                     CStorageObject *parent) {
    m_arrays.emplace_back();
    for (const std::string &element : elements) {
        m_objects.emplace_back();
        CStorageObject_Construct(&m_objects.back(), element.c_str());
        m_arrays.back().push_back(&m_objects.back());
    }
    m_variables.emplace_back();
    CVariable_Construct(&m_variables.back(), m_arrays.back().data(), TYPE_OBJECT_ARRAY,
                        static_cast<std::uint32_t>(elements.size()), name.c_str(), nullptr);
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(parent, &m_variables.back()));
    return m_arrays.back();
}

CVariable *Firmware::variable(CStorageObject *object, const std::string &name, EVariableType type,
                              std::uint32_t noOfElements, const std::vector<unsigned char> &content,
                              const std::vector<unsigned char> *defaults) {
    m_blocks.push_back(content);
    m_blocks.back().reserve(1); // an address also for nothing
    unsigned char *address = m_blocks.back().data();
    unsigned char *defaultAddress = nullptr;
    if (defaults != nullptr) {
        m_blocks.push_back(*defaults);
        defaultAddress = m_blocks.back().data();
    }
    m_variables.emplace_back();
    CVariable_Construct(&m_variables.back(), address, type, noOfElements, name.c_str(), defaultAddress);
    EXPECT_EQ(content.size(), CVariable_GetSizeInBytes(&m_variables.back())) << name;
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(object, &m_variables.back()));
    return &m_variables.back();
}

CVariable *Firmware::ownedVariable(CStorageObject *object, const std::string &name, EVariableType type,
                                   std::uint32_t noOfElements) {
    m_variables.emplace_back();
    CVariable_Construct(&m_variables.back(), nullptr, type, noOfElements, name.c_str(), nullptr);
    EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(object, &m_variables.back()));
    return &m_variables.back();
}

EAFResult Firmware::store(ProviderUnderTest &provider) {
    return provider.table()->StoreAll(m_locationId, &m_database, 0);
}

EAFResult Firmware::retrieve(ProviderUnderTest &provider) {
    return provider.table()->RetrieveAll(m_locationId, &m_database, 0);
}

std::vector<unsigned char> contentOf(const CVariable *variable) {
    const auto *begin = static_cast<const unsigned char *>(variable->content);
    return {begin, begin + CVariable_GetSizeInBytes(const_cast<CVariable *>(variable))};
}

void setContent(CVariable *variable, const std::vector<unsigned char> &content) {
    ASSERT_EQ(content.size(), CVariable_GetSizeInBytes(variable));
    CVariable_Lock(variable);
    std::copy(content.begin(), content.end(), static_cast<unsigned char *>(variable->content));
    CVariable_UnLock(variable);
}

} // namespace test
