// The bytes of a plain store file: any, and such as their checksums were made right again, so that they are believed.
#include "FileFormat.h"

#include <algorithm>
#include <cstdint>
#include <string>

#include "Harness.h"
#include "StoredInput.h"

namespace {

using fuzz::Bytes;
using fuzz::FuzzInput;
using storage::StoreState;
using storage::UnpackedStore;

constexpr std::size_t headerSize = 44;
constexpr std::size_t widthAt = 16;
constexpr std::size_t headerSumAt = 40;

/// All that a file says but for the machine that wrote it, and the checksums over that.
Bytes contentsOf(Bytes file) {
    std::fill_n(file.begin() + widthAt, 4, static_cast<unsigned char>(0));
    std::fill_n(file.begin() + headerSumAt, 4, static_cast<unsigned char>(0));
    file.resize(file.size() - 4);
    return file;
}

bool isOfThisOrder(const Bytes &file) {
    static const Bytes ours = storage::packStore({}, 1);
    return std::equal(file.begin() + 8, file.begin() + 12, ours.begin() + 8);
}

void checkWholeStore(const Bytes &file, const UnpackedStore &store, FuzzInput &input) {
    fuzz::checkWhole(store.values);
    const Bytes packed = storage::packStore(store.values, store.generation);
    FUZZ_CHECK(packed.size() == storage::packedSize(store.values) && packed.size() == file.size(),
               fuzz::shown(store.values));
    FUZZ_CHECK(!isOfThisOrder(file) || contentsOf(packed) == contentsOf(file), fuzz::shown(store.values));
    for (const bool isSwapped : {false, true}) {
        const Bytes written = fuzz::storeFile(store.values, store.generation, isSwapped);
        FUZZ_CHECK(isSwapped || contentsOf(written) == contentsOf(packed), fuzz::shown(store.values));
        const UnpackedStore again = storage::unpackStore(written);
        FUZZ_CHECK(again.state == StoreState::whole && again.values == store.values &&
                       again.generation == store.generation,
                   again.why);
    }
    // A checksum finds every single bit, wherever it is.
    Bytes flipped = file;
    const std::uint32_t bit = input.below(static_cast<std::uint32_t>(std::min<std::size_t>(file.size(), 0x1000) * 8));
    flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ (1U << (bit % 8)));
    FUZZ_CHECK(storage::unpackStore(flipped).state != StoreState::whole, "bit " + std::to_string(bit));
    // So it finds every end that comes too early.
    Bytes cut = file;
    cut.resize(input.below(static_cast<std::uint32_t>(std::min<std::size_t>(file.size(), 0x10000))));
    const StoreState state = storage::unpackStore(cut).state;
    FUZZ_CHECK(state == StoreState::damaged, "cut to " + std::to_string(cut.size()));
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    const std::uint8_t how = input.byte();
    Bytes file;
    if ((how & 8) != 0) {
        const bool isSwapped = (how & 16) != 0;
        file = fuzz::storeFile(fuzz::valuesFrom(input, 12), input.word(), isSwapped);
        fuzz::damage(file, input);
    } else {
        file = input.rest();
    }
    fuzz::repair(file, {(how & 1) != 0, (how & 2) != 0, (how & 4) != 0});

    const UnpackedStore store = storage::unpackStore(file);
    FUZZ_CHECK(store.why.empty() == (store.state == StoreState::whole), store.why);
    const bool begins = file.size() >= 8 && std::equal(file.begin(), file.begin() + 8, "ZAFSTORE");
    switch (store.state) {
    case StoreState::whole:
        FUZZ_CHECK(begins && file.size() >= headerSize + 4, "whole");
        checkWholeStore(file, store, input);
        break;
    case StoreState::notAStore:
        FUZZ_CHECK(!begins && store.values.empty(), store.why);
        break;
    case StoreState::newer:
        FUZZ_CHECK(begins && store.values.empty(), store.why);
        break;
    case StoreState::damaged:
        FUZZ_CHECK(store.values.empty() && store.generation == 0, store.why);
        break;
    }
    return 0;
}
