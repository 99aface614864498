// Two store files of any bytes, the newest generation and the one before: what each reader takes of them, what is set
// aside, what a store leaves, is held against the provider's own table.
#include "FileStore.h"

#include <cstdint>
#include <string>

#include "FileFormat.h"
#include "Harness.h"
#include "StoredInput.h"

namespace {

using fuzz::Bytes;
using fuzz::FuzzInput;
using storage::Access;
using storage::StoredValue;
using storage::StoredValues;
using storage::StoreState;
using storage::UnpackedStore;

const fuzz::Folder &folder() {
    static const fuzz::Folder theFolder;
    return theFolder;
}

struct Generation {
    bool isThere = false;
    Bytes bytes;
    UnpackedStore store;

    bool is(StoreState state) const { return isThere && store.state == state; }
    bool isForeign() const { return !isThere || store.state == StoreState::notAStore; }
};

Generation generationFrom(FuzzInput &input, std::uint64_t number) {
    Generation generation;
    const std::uint32_t form = input.below(8);
    generation.isThere = form != 0;
    if (form == 1) {
        generation.bytes = input.bytes(input.below(200));
    } else if (form != 0) {
        generation.bytes = fuzz::storeFile(fuzz::valuesFrom(input, 6), number, input.oneIn(8));
        if (form < 5) {
            fuzz::damage(generation.bytes, input);
            const std::uint8_t repaired = input.byte();
            fuzz::repair(generation.bytes, {(repaired & 1) != 0, (repaired & 2) != 0, (repaired & 4) != 0});
        }
    }
    generation.store = storage::unpackStore(generation.bytes);
    return generation;
}

/// What a start finds, as the provider's page has it.
struct Outcome {
    EAFResult code;
    StoredValues values;
};

Outcome outcomeOf(const Generation &last, const Generation &before) {
    if (last.is(StoreState::newer) || before.is(StoreState::newer) ||
        (last.isForeign() && before.isForeign() && (last.isThere || before.isThere))) {
        return {eAF_E_INVALID_ARGUMENT, {}};
    }
    if (last.is(StoreState::whole)) {
        return {eAF_S_OK, fuzz::sorted(last.store.values)};
    }
    if (before.is(StoreState::whole)) {
        return {eAF_S_OK, fuzz::sorted(before.store.values)};
    }
    return {eAF_S_OK, {}};
}

/// @param warnings  receives how many were told.
Outcome readBy(storage::FileStore &store, Access access, fuzz::Messages &messages) {
    Outcome outcome{store.open(access, messages), {}};
    if (outcome.code == eAF_S_OK) {
        outcome.code = store.read(outcome.values, messages);
        outcome.values = fuzz::sorted(std::move(outcome.values));
    }
    FUZZ_CHECK((outcome.code == eAF_S_OK) == messages.errors.empty(),
               messages.errors.empty() ? "a failure without a word" : messages.errors[0]);
    return outcome;
}

void checkSame(const Outcome &expected, const Outcome &found) {
    FUZZ_CHECK(expected.code == found.code, std::to_string(expected.code) + " or " + std::to_string(found.code));
    FUZZ_CHECK(expected.values == found.values, fuzz::shown(expected.values) + "\n  or " + fuzz::shown(found.values));
}

void checkReader(const Generation &last, const Generation &before) {
    fuzz::Messages messages;
    storage::FileStore store(folder().file("s"));
    const Outcome found = readBy(store, Access::readOnly, messages);
    Outcome expected = outcomeOf(last, before);
    const bool isAnyWhole = last.is(StoreState::whole) || before.is(StoreState::whole);
    if (expected.code == eAF_S_OK && !isAnyWhole && (last.isThere || before.isThere)) {
        expected.code = eAF_E_FAILED; // what a host would set aside, a reader can not
    }
    checkSame(expected, found);
    FUZZ_CHECK(folder().read("s") == last.bytes && folder().has("s") == last.isThere, "a reader changed the store");
    FUZZ_CHECK(folder().read("s.1") == before.bytes && folder().has("s.1") == before.isThere,
               "a reader changed the generation before");
    FUZZ_CHECK(store.write({StoredValue{"V", TYPE_INT8, 1, {1}}}, messages) >= eAF_E_FAILED, "a reader wrote");
}

/// What does not hold is kept under a name of its own, byte by byte.
void checkSetAside(const Generation &last, const Generation &before) {
    std::size_t number = 0;
    for (const Generation *generation : {&last, &before}) {
        if (generation->isThere && !generation->is(StoreState::whole)) {
            const std::string name = "s.damaged-" + std::to_string(++number);
            FUZZ_CHECK(folder().has(name) && folder().read(name) == generation->bytes, name);
        }
    }
    const std::size_t isLast = last.is(StoreState::whole) ? 1 : 0;
    const std::size_t isBefore = before.is(StoreState::whole) ? 1 : 0;
    FUZZ_CHECK(folder().names().size() == number + isLast + isBefore, "files came or went");
}

StoredValues merged(StoredValues values, const StoredValues &changes) {
    for (const StoredValue &change : changes) {
        bool isThere = false;
        for (StoredValue &value : values) {
            if (value.path == change.path) {
                value = change;
                isThere = true;
            }
        }
        if (!isThere) {
            values.push_back(change);
        }
    }
    return fuzz::sorted(std::move(values));
}

void checkHost(const Generation &last, const Generation &before, FuzzInput &input) {
    const Outcome expected = outcomeOf(last, before);
    StoredValues changes;
    StoredValues stored;
    {
        fuzz::Messages messages;
        storage::FileStore store(folder().file("s"));
        const Outcome found = readBy(store, Access::readWrite, messages);
        checkSame(expected, found);
        if (found.code != eAF_S_OK) {
            FUZZ_CHECK(folder().read("s") == last.bytes && folder().read("s.1") == before.bytes,
                       "what is refused was changed");
            return;
        }
        checkSetAside(last, before);
        changes = fuzz::valuesFrom(input, 4);
        stored = merged(found.values, changes);
        FUZZ_CHECK(store.write(changes, messages) == eAF_S_OK, messages.errors.empty() ? "" : messages.errors[0]);
        StoredValues again;
        FUZZ_CHECK(store.read(again, messages) == eAF_S_OK, "read after a write");
        checkSame({eAF_S_OK, stored}, {eAF_S_OK, fuzz::sorted(again)});
        FUZZ_CHECK(!folder().has("s.new"), "the one in the making stayed");
    }
    fuzz::Messages messages;
    storage::FileStore store(folder().file("s"));
    checkSame({eAF_S_OK, stored}, readBy(store, Access::readOnly, messages));
    // The generation before is what was there, unless nothing changed.
    const UnpackedStore kept = storage::unpackStore(folder().read("s.1"));
    const bool isReplaced = stored != expected.values && !expected.values.empty();
    FUZZ_CHECK(!isReplaced || (kept.state == StoreState::whole && fuzz::sorted(kept.values) == expected.values),
               "the generation before is lost");
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***) {
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    FuzzInput input(data, size);
    folder().clear();
    const std::uint32_t generation = input.below(0x10000);
    const Generation last = generationFrom(input, generation + 1);
    const Generation before = generationFrom(input, generation);
    if (last.isThere) {
        folder().write("s", last.bytes);
    }
    if (before.isThere) {
        folder().write("s.1", before.bytes);
    }
    checkReader(last, before);
    checkHost(last, before, input);
    return 0;
}
