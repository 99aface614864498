/// @file
/// The boundary at which the allocator's exception becomes a result code.
#pragma once

#include <new>
#include <stdexcept>
#include <utility>

#include "EAFResult.h"

namespace af {

/// Runs a step that either succeeds or leaves everything as it was.
template <class Step>
EAFResult withOutOfMemoryAsCode(Step &&step) {
    try {
        return std::forward<Step>(step)();
    } catch (const std::bad_alloc &) {
        return eAF_E_OUT_OF_MEMORY;
    } catch (const std::length_error &) {
        // More than the address space of a small target could ever give.
        return eAF_E_OUT_OF_MEMORY;
    }
}

} // namespace af
