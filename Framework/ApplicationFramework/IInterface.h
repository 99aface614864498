/// @file
/// The base of everything that can be published through the InterfaceBroker.
#pragma once

#include <string>

#include "AFExport.h"

class AF_API IInterface {
public:
    /// @param name  copied; what the object is published under unless another name is given.
    explicit IInterface(const std::string &name);
    virtual ~IInterface();

    IInterface(const IInterface &) = delete;
    IInterface &operator=(const IInterface &) = delete;

    /// @return the name given at construction.
    const std::string &getName() const;

private:
    friend class InterfaceBroker;
    // First, behind the virtual table: components built long ago read it there.
    std::string m_name;
};
