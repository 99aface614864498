#include "VariableTree.h"

#include "Measure.h"

namespace instructions {

namespace {

constexpr std::uint32_t variablesOfAnObject = 100;

std::string objectName(std::uint32_t object) {
    return numbered("Carrier", object);
}

} // namespace

VariableTree::VariableTree(const std::string &region, unsigned long locationId, std::uint32_t noOfVariables)
    : m_contents(noOfVariables), m_defaults(noOfVariables) {
    CStorageRegion_Construct(&m_region, region.c_str(), locationId);
    for (std::uint32_t i = 0; i < noOfVariables; ++i) {
        if (i % variablesOfAnObject == 0) {
            CStorageObject_Construct(&m_objects.emplace_back(), objectName(i / variablesOfAnObject).c_str());
            require("an object", CStorageRegion_AddObject(&m_region, &m_objects.back()));
        }
        m_contents[i] = m_defaults[i] = static_cast<std::int32_t>(i);
        require("a variable", CVariable_Construct(&m_variables.emplace_back(), &m_contents[i], TYPE_INT32, 1,
                                                  name(i).c_str(), &m_defaults[i]));
        require("an object's variable", CStorageObject_AddVariable(&m_objects.back(), &m_variables.back()));
    }
}

std::string VariableTree::path(std::uint32_t variable) const {
    return std::string(m_region.name) + "/" + objectName(variable / variablesOfAnObject) + "/" + name(variable);
}

} // namespace instructions
