/// @file
/// Reading and changing a variable under its own lock.
#pragma once

#include <CVariable.h>

namespace radio {

/// @param variable  holds elements of this type.
template <class Element>
Element storedElement(CVariable *variable, std::size_t index) {
    CVariable_Lock(variable);
    void *content = nullptr;
    CVariable_GetContentAddress(variable, &content);
    const Element element = static_cast<const Element *>(content)[index];
    CVariable_UnLock(variable);
    return element;
}

template <class Element>
void changeStoredElement(CVariable *variable, std::size_t index, Element element) {
    CVariable_Lock(variable);
    void *content = nullptr;
    CVariable_GetContentAddress(variable, &content);
    static_cast<Element *>(content)[index] = element;
    CVariable_UnLock(variable);
}

} // namespace radio
