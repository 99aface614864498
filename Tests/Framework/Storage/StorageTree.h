/// @file
/// Regions, objects and variables for the tests, with memory of their own.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

#include "CDatabase.h"

namespace test {

/// Declare it before what takes its regions in: those destruct what it owns.
class StorageTree {
public:
    CStorageRegion *region(const std::string &name, unsigned long locationId = 1) {
        m_regions.emplace_back();
        CStorageRegion_Construct(&m_regions.back(), name.c_str(), locationId);
        return &m_regions.back();
    }
    CStorageObject *object(const std::string &name) {
        m_objects.emplace_back();
        CStorageObject_Construct(&m_objects.back(), name.c_str());
        return &m_objects.back();
    }
    CStorageObject *objectIn(CStorageRegion *region, const std::string &name) {
        CStorageObject *added = object(name);
        EXPECT_EQ(eAF_S_OK, CStorageRegion_AddObject(region, added));
        return added;
    }
    /// An integer whose content and default are here.
    CVariable *integer(CStorageObject *object, const std::string &name, std::int32_t value = 0,
                       const std::int32_t *defaultValue = nullptr) {
        m_values.push_back(value);
        std::int32_t *content = &m_values.back();
        std::int32_t *defaultContent = nullptr;
        if (defaultValue != nullptr) {
            m_values.push_back(*defaultValue);
            defaultContent = &m_values.back();
        }
        return variable(object, {content, TYPE_INT32, 1, name.c_str(), defaultContent});
    }
    CVariable *variable(CStorageObject *object, const SVariableDescriptor &descriptor) {
        m_variables.emplace_back();
        EXPECT_EQ(eAF_S_OK,
                  CVariable_Construct(&m_variables.back(), descriptor.contentAddress, descriptor.type,
                                      descriptor.noOfElements, descriptor.name, descriptor.defaultContentAddress));
        EXPECT_EQ(eAF_S_OK, CStorageObject_AddVariable(object, &m_variables.back()));
        return &m_variables.back();
    }
    CStorageObject *nested(CStorageObject *parent, const std::string &name) {
        CStorageObject *child = object(name);
        variable(parent, {child, TYPE_OBJECT, 1, name.c_str(), nullptr});
        return child;
    }
    std::vector<CStorageObject *> &objectArray(CStorageObject *parent, const std::string &name,
                                               const std::vector<std::string> &elements) {
        m_arrays.emplace_back();
        for (const std::string &element : elements) {
            m_arrays.back().push_back(element.empty() ? nullptr : object(element));
        }
        variable(parent, {m_arrays.back().data(), TYPE_OBJECT_ARRAY, static_cast<std::uint32_t>(elements.size()),
                          name.c_str(), nullptr});
        return m_arrays.back();
    }

private:
    std::deque<std::int32_t> m_values;
    std::deque<CVariable> m_variables;
    std::deque<CStorageObject> m_objects;
    std::deque<CStorageRegion> m_regions;
    std::deque<std::vector<CStorageObject *>> m_arrays;
};

inline std::int32_t valueOf(const CVariable *variable) {
    return *static_cast<std::int32_t *>(variable->content);
}

} // namespace test
