/// @file
/// Operations on the storage manager and on its model, compared after each. What is done is chosen by somebody else.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Choices.h"
#include "StorageModel.h"
#include "StorageTree.h"

namespace test {

/// One at a time: the storage manager is the process's.
class StorageWalk {
public:
    explicit StorageWalk(Choices &choices);
    ~StorageWalk();
    StorageWalk(const StorageWalk &) = delete;
    StorageWalk &operator=(const StorageWalk &) = delete;

    /// Fails the test where the two differ.
    void step();

    /// Everything that was registered is gone.
    void begin();

private:
    std::uint32_t below(std::uint32_t bound) { return choices.below(bound); }
    bool oneIn(std::uint32_t chances) { return choices.oneIn(chances); }
    unsigned long someId() { return 1 + below(4); }

    static void forgetTraces();
    void check(const std::string &what, EAFResult code, const Expected &expected);
    void addObject(StorageModel::Object &model, CStorageObject *object, int depth);
    void registerRegion();
    void lookUp();
    void checkContent(const std::string &place, EAFResult expected, const CVariable *variable, bool isByPath);
    void chooseFailure();
    void registerProvider(int number);
    void odd();
    void lookUpNothing(const char *nameless);
    static void askNullRecords();

    Choices &choices;
    StorageTree tree;
    StorageModel storage;
    std::map<const CVariable *, int> ids;
    int lastId = 0;
    std::uint32_t providersMade = 0;
    std::uint32_t oddCalls = 0;
};

} // namespace test
