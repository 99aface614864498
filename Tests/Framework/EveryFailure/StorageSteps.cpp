// Variables, objects, regions, databases and the storage manager with its classes.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "EventQueues.h"
#include "ScenarioParts.h"

namespace test {
namespace {

std::array<std::int32_t, 1> kept;
bool isKept;

EAFResult initializeNothing(unsigned long /*locationId*/) {
    return eAF_S_OK;
}

EAFResult reserveNothing(unsigned long /*locationId*/, unsigned long /*size*/) {
    return eAF_S_OK;
}

EAFResult keepNumber(CDatabase * /*database*/, CVariable *variable, const char * /*fullPath*/,
                     const char * /*regionName*/, const char * /*objectPath*/, const char *variableName) {
    if (std::strcmp(variableName, "Number0") == 0) {
        std::memcpy(kept.data(), variable->content, sizeof(std::int32_t));
        isKept = true;
    }
    return eAF_S_OK;
}

EAFResult putBack(CDatabase * /*database*/, CVariable *variable, const char * /*fullPath*/, const char * /*regionName*/,
                  const char * /*objectPath*/, const char * /*variableName*/) {
    if (isKept) {
        CVariable_Lock(variable);
        const bool isNumber = CVariable_GetType(variable) == TYPE_INT32;
        std::memset(variable->content, isNumber ? 0 : kept[0], CVariable_GetSizeInBytes(variable));
        if (isNumber) {
            std::memcpy(variable->content, kept.data(), sizeof(std::int32_t));
        }
        CVariable_UnLock(variable);
        CVariable_SetRetrieved(variable, 1);
    }
    return eAF_S_OK;
}

EAFResult storeInMemory(unsigned long /*locationId*/, CDatabase *database, unsigned long /*locationData*/) {
    return CDatabase_DoVariableOperation(database, keepNumber);
}

EAFResult retrieveFromMemory(unsigned long /*locationId*/, CDatabase *database, unsigned long /*locationData*/) {
    for (const auto step : {CDatabase_SetAsNotRetrieved, CDatabase_SetNotRetrievedVariablesToDefault}) {
        const EAFResult result = step(database);
        if (result != eAF_S_OK) {
            return result;
        }
    }
    return CDatabase_DoVariableOperation(database, putBack);
}

EAFResult touchNothing(CDatabase * /*database*/, CVariable * /*variable*/, const char * /*fullPath*/,
                       const char * /*regionName*/, const char * /*objectPath*/, const char * /*variableName*/) {
    return eAF_S_OK;
}

constexpr char nestedName[] = "Nested object with its own name";

} // namespace

IStorageProvider *tableInMemory() {
    static IStorageProvider table = {initializeNothing, reserveNothing, storeInMemory, retrieveFromMemory};
    return &table;
}

void forgetMemory() {
    isKept = false;
}

Scenario::Parts::Parts() {
    configuration[8] = ownServerPort(getpid());
    setDefaults(generationOfDefaults);
    setGeneration(0);
}

void Scenario::Parts::setGeneration(std::int32_t generation) {
    numbers.fill(generation);
    blob.fill(static_cast<unsigned char>(generation));
    text.fill(static_cast<char>(generation));
    if (added.content != nullptr) {
        std::memcpy(added.content, &generation, sizeof generation);
    }
}

void Scenario::Parts::setDefaults(std::int32_t generation) {
    defaults.fill(generation);
    defaultBlob.fill(static_cast<unsigned char>(generation));
    defaultText.fill(static_cast<char>(generation));
}

std::int32_t Scenario::Parts::generation() const {
    const std::int32_t first = numbers[0];
    return holdsOnly({first}) ? first : -1;
}

bool Scenario::Parts::holdsOnly(std::initializer_list<std::int32_t> generations) const {
    const auto isIn = [&](std::int32_t generation) {
        return std::find(generations.begin(), generations.end(), generation) != generations.end();
    };
    const auto isWhole = [&](const auto &content) {
        const auto isFirst = [&](auto element) { return element == content[0]; };
        return isIn(static_cast<std::int32_t>(content[0])) && std::all_of(content.begin(), content.end(), isFirst);
    };
    std::int32_t ofAdded = numbers[0];
    if (added.content != nullptr) {
        std::memcpy(&ofAdded, added.content, sizeof ofAdded);
    }
    return std::all_of(numbers.begin(), numbers.end(), isIn) && isWhole(blob) && isWhole(text) && isIn(ofAdded);
}

void Scenario::addVariables() {
    Parts &p = *m_parts;
    add("CVariable_Construct",
        [&p] { return CVariable_Construct(&p.own, nullptr, TYPE_INT16_ARRAY, 30, "Own", nullptr); })
        .needs()
        .leaves()
        .undoneBy([&p] { CVariable_Destruct(&p.own); })
        .onCall("pthread_mutex_init", {eAF_E_MUTEX_ERROR}, "Can't init mutex");
    add("CVariable_GetAccessType", [&p] { return CVariable_GetAccessType(&p.own); }).answers(ByValue);
    add("CVariable_GetType", [&p] { return CVariable_GetType(&p.own); }).answers(TYPE_INT16_ARRAY);
    add("CVariable_GetNoOfElements", [&p] { return CVariable_GetNoOfElements(&p.own); }).answers(30);
    add("CVariable_GetSizeInBytes", [&p] { return CVariable_GetSizeInBytes(&p.own); }).answers(60);
    add("CVariable_SetContent", [&p] {
        static const std::array<std::int16_t, 30> values{1, -2};
        return CVariable_SetContent(&p.own, values.data());
    });
    add("CVariable_GetContent", [&p] {
        std::array<std::int16_t, 30> values{};
        const EAFResult result = CVariable_GetContent(&p.own, values.data());
        return result != eAF_S_OK || values[1] == -2 ? result : wrongEffect;
    });
    add("CVariable_GetContentAddress", [&p] {
        void *content = nullptr;
        const EAFResult result = CVariable_GetContentAddress(&p.own, &content);
        return result != eAF_S_OK || content != nullptr ? result : wrongEffect;
    });
    add("CVariable_GetDefaultContentAddress", [&p] {
        void *content = &content;
        const EAFResult result = CVariable_GetDefaultContentAddress(&p.own, &content);
        return result != eAF_S_OK || content == nullptr ? result : wrongEffect;
    });
    add("CVariable_GetName", [&p] {
        const char *name = nullptr;
        const EAFResult result = CVariable_GetName(&p.own, &name);
        return result != eAF_S_OK || std::strcmp(name, "Own") == 0 ? result : wrongEffect;
    });
    add("CVariable_SetPath", [&p] { return CVariable_SetPath(&p.own, "R", longName.c_str(), "V"); });
    add("CVariable_GetPath", [&p] {
        const char *path = nullptr;
        const EAFResult result = CVariable_GetPath(&p.own, &path);
        return result != eAF_S_OK || std::strncmp(path, "R/a name", 8) == 0 ? result : wrongEffect;
    });
    add("CVariable_ToString", [&p] {
        std::array<char, 400> text{};
        return CVariable_ToString(&p.own, text.data(), static_cast<std::uint32_t>(text.size()));
    });
    add("CVariable_FormatText", [&p] {
        std::array<char, 400> text{};
        std::uint32_t needed = 0;
        const EAFResult result =
            CVariable_FormatText(&p.own, text.data(), static_cast<std::uint32_t>(text.size()), &needed);
        return result != eAF_S_OK || std::strncmp(text.data(), "[1 ,-2 ,0", 9) == 0 ? result : wrongEffect;
    });
    add("CVariable_SetRetrieved, CVariable_IsRetrieved", [&p] {
        CVariable_SetRetrieved(&p.own, 1);
        return CVariable_IsRetrieved(&p.own);
    }).answers(1);
    add("CVariable_SetDynamicallyAllocated, CVariable_IsDynamicallyAllocated", [&p] {
        CVariable_SetDynamicallyAllocated(&p.own, 1);
        return CVariable_IsDynamicallyAllocated(&p.own);
    }).answers(1);
    add("CVariable_Lock", [&p] {
        return CVariable_Lock(&p.own);
    }).onCall("pthread_mutex_lock", {eAF_E_MUTEX_ERROR}, "Can't lock mutex");
    add("CVariable_UnLock", [&p] {
        return CVariable_UnLock(&p.own);
    }).onCall("pthread_mutex_unlock", {eAF_E_MUTEX_ERROR}, "Can't unlock mutex");
    add("CVariable_Destruct", [&p] {
        return CVariable_Destruct(&p.own);
    }).onCall("pthread_mutex_destroy", {eAF_E_MUTEX_ERROR}, "Can't destroy mutex");
}

void Scenario::addObjectsAndRegions() {
    Parts &p = *m_parts;
    const auto construct = [this](CStorageObject &object, const char *name) {
        add("CStorageObject_Construct, CStorageObject_IsEmpty", [&object, name] {
            CStorageObject_Construct(&object, name);
            return CStorageObject_IsEmpty(&object) != 0 ? 1u : 0u;
        }).answers(1);
    };
    construct(p.top, "Radio");
    construct(p.nested, nestedName);
    construct(p.parent, "Parent");
    construct(p.child, "Child of the parent, by its name");
    const auto create = [this](CStorageObject &object, SVariableDescriptor descriptor) {
        add("CStorageObject_CreateVariables",
            [&object, descriptor]() mutable { return CStorageObject_CreateVariables(&object, &descriptor, 1); })
            .needs({eAF_E_OUT_OF_MEMORY, eAF_E_FAILED})
            .loses()
            .onCall("pthread_mutex_init", {eAF_S_OK}, "Can't init mutex");
    };
    create(p.top, {p.numbers.data(), TYPE_INT32, 1, "Number0", p.defaults.data()});
    create(p.top, {p.blob.data(), TYPE_UINT8_ARRAY, Parts::blobSize, "Blob", p.defaultBlob.data()});
    create(p.top, {p.text.data(), TYPE_STRING, 24, "Text", p.defaultText.data()});
    create(p.parent, {nullptr, TYPE_DOUBLE_ARRAY, 9, "Own content", nullptr});
    static constexpr const char *names[] = {"Number0", "Number1", "Number2", "Number3"};
    for (std::size_t i = 1; i < 4; ++i) {
        create(p.nested, {&p.numbers[i], TYPE_INT32, 1, names[i], &p.defaults[i]});
    }
    add("CVariable_Construct",
        [&p] { return CVariable_Construct(&p.added, nullptr, TYPE_INT32, 1, "Added", p.defaults.data()); })
        .needs()
        .leaves()
        .undoneBy([&p] { CVariable_Destruct(&p.added); })
        .onCall("pthread_mutex_init", {eAF_E_MUTEX_ERROR}, "Can't init mutex");
    add("CVariable_Construct",
        [&p] {
            p.elements = {&p.nested};
            return CVariable_Construct(&p.array, p.elements.data(), TYPE_OBJECT_ARRAY, 1, "Array", nullptr);
        })
        .leaves()
        .onCall("pthread_mutex_init", {eAF_E_MUTEX_ERROR}, "Can't init mutex");
    for (CVariable *variable : {&p.added, &p.array}) {
        add("CStorageObject_AddVariable", [&p, variable] {
            return CStorageObject_AddVariable(&p.top, variable);
        }).needs({eAF_E_FAILED});
    }
    add("CStorageObject_AddObject", [&p] { return CStorageObject_AddObject(&p.parent, &p.child); })
        .needs({eAF_E_OUT_OF_MEMORY, eAF_E_FAILED})
        .loses()
        .onCall("pthread_mutex_init", {eAF_S_OK}, "Can't init mutex");
    add("CStorageObject_GetVariableByName", [&p] {
        return CStorageObject_GetVariableByName(&p.parent, "Child of the parent, by its name", &p.wrapper);
    }).answers(1);
    add("CStorageObject_GetName", [&p] {
        char *name = nullptr;
        return CStorageObject_GetName(&p.top, &name);
    });
    add("CStorageObject_GetNoOfVariables", [&p] { return CStorageObject_GetNoOfVariables(&p.top); }).answers(5);
    add("CStorageObject_GetVariableIterator, CStorageObject_GetNextVariable", [&p] {
        CListIterator iterator{};
        EAFResult result = CStorageObject_GetVariableIterator(&p.top, &iterator);
        std::uint32_t count = 0;
        while (result == eAF_S_OK) {
            CVariable *variable = nullptr;
            result = CStorageObject_GetNextVariable(&p.top, &variable, &iterator);
            ++count;
        }
        return result == eAF_W_NO_MORE_DATA && count == 5 ? eAF_S_OK : wrongEffect;
    });
    add("CStorageObject_ReserveSize", [&p] { return CStorageObject_ReserveSize(&p.top, 100); });
    add("CStorageObject_GetSizeInBytes", [&p] {
        unsigned long size = 0;
        return CStorageObject_GetSizeInBytes(&p.top, &size);
    });
    add("CStorageObject_SetRawObjectContentAddress, CStorageObject_GetRawObjectContentAddress", [&p] {
        void *raw = nullptr;
        CStorageObject_SetRawObjectContentAddress(&p.top, &p);
        const EAFResult result = CStorageObject_GetRawObjectContentAddress(&p.top, &raw);
        return result != eAF_S_OK || raw == &p ? result : wrongEffect;
    });
    add("CStorageObject_SetApplicationData, CStorageObject_GetApplicationData", [&p] {
        uintptr_t data = 0;
        CStorageObject_SetApplicationData(&p.top, 9);
        const EAFResult result = CStorageObject_GetApplicationData(&p.top, &data);
        return result != eAF_S_OK || data == 9 ? result : wrongEffect;
    });
    add("CStorageObject_SetWritable, CStorageObject_IsWritable", [&p] {
        CStorageObject_SetWritable(&p.top, 0);
        return CStorageObject_IsWritable(&p.top);
    }).answers(0);
    add("CStorageObject_SetDynamicallyAllocated, CStorageObject_IsDynamicallyAllocated", [&p] {
        CStorageObject_SetDynamicallyAllocated(&p.top, 0);
        return CStorageObject_IsDynamicallyAllocated(&p.top);
    }).answers(0);
    add("CStorageRegion_Construct, CStorageRegion_IsEmpty", [&p] {
        CStorageRegion_Construct(&p.region, "Cfg", Parts::locationId);
        CStorageRegion_Construct(&p.alone, "Alone", 5);
        CStorageRegion_Construct(&p.described, "Described", 6);
        return CStorageRegion_IsEmpty(&p.region);
    }).answers(1);
    add("CStorageRegion_AddObject", [&p] { return CStorageRegion_AddObject(&p.region, &p.top); }).needs();
    add("CStorageRegion_AddObject", [&p] { return CStorageRegion_AddObject(&p.alone, &p.parent); }).needs();
    add("CStorageRegion_GetName", [&p] {
        char *name = nullptr;
        const EAFResult result = CStorageRegion_GetName(&p.region, &name);
        return result != eAF_S_OK || std::strcmp(name, "Cfg") == 0 ? result : wrongEffect;
    });
    add("CStorageRegion_GetLocationId", [&p] {
        return static_cast<std::uint32_t>(CStorageRegion_GetLocationId(&p.region));
    }).answers(Parts::locationId);
    add("CStorageRegion_GetNoOfObjects", [&p] { return CStorageRegion_GetNoOfObjects(&p.region); }).answers(1);
    add("CStorageRegion_ReserveSize, CStorageRegion_GetReservedSize", [&p] {
        unsigned long size = 0;
        const EAFResult reserved = CStorageRegion_ReserveSize(&p.region, 200);
        const EAFResult result = CStorageRegion_GetReservedSize(&p.region, &size);
        return reserved == eAF_S_OK && (result != eAF_S_OK || size == 200) ? result : wrongEffect;
    });
    add("CStorageRegion_GetSizeInBytes", [&p] {
        unsigned long size = 0;
        const EAFResult result = CStorageRegion_GetSizeInBytes(&p.region, &size);
        return result != eAF_S_OK || size > 300 ? result : wrongEffect;
    });
    add("CStorageRegion_SetDynamicallyAllocated, CStorageRegion_IsDynamicallyAllocated", [&p] {
        CStorageRegion_SetDynamicallyAllocated(&p.region, 0);
        return CStorageRegion_IsDynamicallyAllocated(&p.region);
    }).answers(0);
    add("CStorageRegion_Destruct, CStorageObject_Destruct", [] {
        CStorageObject object{};
        CStorageRegion region{};
        CStorageObject_Construct(&object, "Passing");
        CStorageRegion_Construct(&region, "Passing", 7);
        CStorageRegion_Destruct(&region);
        CStorageObject_Destruct(&object);
        return CStorageRegion_IsEmpty(&region) != 0 && CStorageObject_IsEmpty(&object) != 0 ? eAF_S_OK : wrongEffect;
    });
}

void Scenario::addDatabase() {
    Parts &p = *m_parts;
    // A database whose table got no memory finds nothing by path: it is made anew.
    add("CDatabase_Construct",
        [&p] {
            CDatabase_Construct(&p.database, 16);
            p.isDatabaseThere = true;
            return CDatabase_GetNoOfRegions(&p.database);
        })
        .ignores()
        .undoneBy([&p] { CDatabase_Destruct(&p.database); });
    add("CDatabase_AddRegion", [&p] { return CDatabase_AddRegion(&p.database, &p.alone); }).needs();
    add("CDatabase_GetNoOfRegions", [&p] { return CDatabase_GetNoOfRegions(&p.database); }).answers(1);
    add("CDatabase_GetRegionByName", [&p] {
        CStorageRegion *found = nullptr;
        return CDatabase_GetRegionByName(&p.database, "Alone", &found);
    });
    // The wrapper's content is taken for an object and has no name: each walk says so, and goes on.
    add("CDatabase_UpdatePathHashTable", [&p] { return CDatabase_UpdatePathHashTable(&p.database); })
        .ignores({eAF_E_OUT_OF_MEMORY})
        .answers(eAF_E_FAILED);
    add("CDatabase_DoVariableOperation", [&p] { return CDatabase_DoVariableOperation(&p.database, touchNothing); })
        .needs()
        .answers(eAF_E_FAILED);
    add("CDatabase_SetAsNotRetrieved", [&p] { return CDatabase_SetAsNotRetrieved(&p.database); })
        .needs()
        .answers(eAF_E_FAILED);
    add("CDatabase_SetNotRetrievedVariablesToDefault",
        [&p] { return CDatabase_SetNotRetrievedVariablesToDefault(&p.database); })
        .needs()
        .answers(eAF_E_FAILED);
    add("CDatabase_GetVariableByPath", [&p] {
        CVariable *variable = nullptr;
        return CDatabase_GetVariableByPath(&p.database, "Alone/Parent/Own content", &variable);
    });
    add("CDatabase_GetVariableByName", [&p] {
        CVariable *variable = nullptr;
        return CDatabase_GetVariableByName(&p.database, "Own content", &variable);
    });
    add("CDatabase_RemoveRegion", [&p] {
        const EAFResult result = CDatabase_RemoveRegion(&p.database, "Alone");
        return result != eAF_S_OK ? result : CDatabase_GetNoOfRegions(&p.database);
    });
    add("CDatabase_Destruct", [&p] {
        CDatabase_Destruct(&p.database);
        p.isDatabaseThere = false;
        return eAF_S_OK;
    });
}

} // namespace test
