/// @file
/// A location's variables for the suite, and the host's way to a provider.
#pragma once

#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "CStorageManager.h"
#include "ProviderUnderTest.h"

namespace test {

/// A folder of its own in one of its own, removed with everything in them.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder &) = delete;
    TemporaryFolder &operator=(const TemporaryFolder &) = delete;

    const std::string &name() const { return m_name; }
    std::string file(const std::string &file) const { return m_name + "/" + file; }
    std::vector<std::string> files() const;

private:
    std::string m_root;
    std::string m_name;
};

/// The variables of one location, filed in a database of their own as a firmware's start would.
class Firmware {
public:
    explicit Firmware(unsigned long locationId = 1, const std::string &region = "Cfg");
    ~Firmware();
    Firmware(const Firmware &) = delete;
    Firmware &operator=(const Firmware &) = delete;

    CStorageObject *object(const std::string &name, CStorageObject *parent = nullptr);
    std::vector<CStorageObject *> &objectArray(const std::string &name, const std::vector<std::string> &elements,
                                               CStorageObject *parent);

    /// A variable with a content, and a default if one is given; the bytes are copied.
    CVariable *variable(CStorageObject *object, const std::string &name, EVariableType type, std::uint32_t noOfElements,
                        const std::vector<unsigned char> &content,
                        const std::vector<unsigned char> *defaults = nullptr);

    /// A variable that makes its content block itself.
    CVariable *ownedVariable(CStorageObject *object, const std::string &name, EVariableType type,
                             std::uint32_t noOfElements);

    template <class Element>
    CVariable *single(CStorageObject *object, const std::string &name, EVariableType type, Element content,
                      const Element *defaults = nullptr) {
        const std::vector<unsigned char> bytes =
            defaults != nullptr ? bytesOf(*defaults) : std::vector<unsigned char>();
        return variable(object, name, type, 1, bytesOf(content), defaults != nullptr ? &bytes : nullptr);
    }

    template <class Element>
    static std::vector<unsigned char> bytesOf(const Element &element) {
        std::vector<unsigned char> bytes(sizeof element);
        std::memcpy(bytes.data(), &element, sizeof element);
        return bytes;
    }

    EAFResult store(ProviderUnderTest &provider);
    EAFResult retrieve(ProviderUnderTest &provider);

    CDatabase *database() { return &m_database; }
    unsigned long locationId() const { return m_locationId; }

private:
    unsigned long m_locationId;
    std::deque<std::vector<unsigned char>> m_blocks;
    std::deque<CVariable> m_variables;
    std::deque<CStorageObject> m_objects;
    std::deque<std::vector<CStorageObject *>> m_arrays;
    CStorageRegion m_region{};
    CDatabase m_database{};
};

std::vector<unsigned char> contentOf(const CVariable *variable);
void setContent(CVariable *variable, const std::vector<unsigned char> &content);

template <class Element>
Element valueOf(const CVariable *variable) {
    Element element;
    std::memcpy(&element, variable->content, sizeof element);
    return element;
}

template <class Element>
void setValue(CVariable *variable, Element value) {
    setContent(variable, Firmware::bytesOf(value));
}

} // namespace test
