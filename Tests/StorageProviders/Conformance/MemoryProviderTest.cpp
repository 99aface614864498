#include "MemoryProvider.h"

std::unique_ptr<test::ProviderUnderTest> test::makeProvider() {
    return std::make_unique<MemoryProvider>();
}
