/// @file
/// What a power amplifier lets other modules do with it, found by name through the interface broker.
#pragma once

#include <IInterface.h>

#include <cstdint>
#include <string>

namespace radio {

class IGainControl : public IInterface {
public:
    /// The name under which a channel's amplifier publishes itself.
    static std::string nameOf(uint32_t radioChannel) { return "GainControl" + std::to_string(radioChannel); }

    /// Ramps to another gain. Control thread only.
    /// @return false when the amplifier is off.
    virtual bool changeGain(double decibel) = 0;

protected:
    using IInterface::IInterface;
};

} // namespace radio
