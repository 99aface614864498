// Visiting every variable of a location, as the providers do to compare and to fill them.
#include <stdexcept>

#include "CDatabase.h"
#include "Comparison.h"
#include "StorageModel.h"
#include "StorageRows.h"

namespace speed {

namespace {

std::size_t visits = 0;

EAFResult count(CDatabase * /*database*/, CVariable *variable, const char * /*fullPath*/, const char * /*regionName*/,
                const char * /*objectPath*/, const char * /*variableName*/) {
    benchmark::DoNotOptimize(variable);
    ++visits;
    return eAF_S_OK;
}

EAFResult countLocked(CDatabase *database, CVariable *variable, const char *fullPath, const char *regionName,
                      const char *objectPath, const char *variableName) {
    requireNoError("a lock", CVariable_Lock(variable));
    const EAFResult counted = count(database, variable, fullPath, regionName, objectPath, variableName);
    requireNoError("an unlock", CVariable_UnLock(variable));
    return counted;
}

/// @param visitAll  visits every variable once.
template <class VisitAll>
Body visiting(std::uint32_t variables, VisitAll visitAll) {
    return [=](benchmark::State &state) {
        endLookUps();
        CDatabase &database = StorageModel::of({variables, 1}).database(0);
        for (auto _ : state) {
            visitAll(database);
        }
    };
}

/// @param visitAll  counts its visits.
template <class VisitAll>
Body counting(std::uint32_t variables, VisitAll visitAll) {
    return [visit = visiting(variables, visitAll), variables](benchmark::State &state) {
        const std::size_t before = visits;
        visit(state);
        if (visits - before != static_cast<std::size_t>(state.iterations()) * variables) {
            throw std::runtime_error("not every variable was visited");
        }
    };
}

} // namespace

void addWalkRows() {
    for (const std::uint32_t variables : {100U, 1'000U, 10'000U}) {
        Work work;
        work.group = "storage";
        work.name = "a walk over the variables of a location";
        work.size = variables;
        work.sizeUnit = "variables";
        work.parts = variables;
        work.partUnit = "variable";
        compare(work, Role::limit, "an array of their addresses", counting(variables, [variables](CDatabase &database) {
                    DatabaseAction action = count;
                    benchmark::DoNotOptimize(action);
                    for (CVariable *variable : StorageModel::of({variables, 1}).variables()) {
                        action(&database, variable, "", "", "", "");
                    }
                }));
        compare(work, Role::library, "with its path", counting(variables, [](CDatabase &database) {
                    requireNoError("a walk", CDatabase_DoVariableOperation(&database, count));
                }));
        compare(work, Role::library, "with its path, locked", counting(variables, [](CDatabase &database) {
                    requireNoError("a walk", CDatabase_DoVariableOperation(&database, countLocked));
                }));
        compare(work, Role::library, "marked as not retrieved", visiting(variables, [](CDatabase &database) {
                    requireNoError("a walk", CDatabase_SetAsNotRetrieved(&database));
                }));
    }
}

} // namespace speed
