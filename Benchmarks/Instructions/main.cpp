// The core paths of the library and the storage providers, each between marks for callgrind. Run by Instructions.py;
// without callgrind it goes through them all the same, and says so when one does not do its work.
#include <cstdio>
#include <cstring>

#include "Measure.h"

namespace {

struct Service {
    const char *name;
    void (*paths)();
};

constexpr Service services[] = {
    {"events", instructions::eventPaths},  {"modules", instructions::modulePaths},
    {"lookup", instructions::lookupPaths}, {"variables", instructions::variablePaths},
    {"sqlite", instructions::sqlitePaths}, {"file", instructions::filePaths},
    {"broker", instructions::brokerPaths},
};

} // namespace

int main(int argc, char **argv) {
    for (const Service &service : services) {
        if (argc == 2 && std::strcmp(argv[1], service.name) == 0) {
            service.paths();
            return 0;
        }
    }
    std::fprintf(stderr, "InstructionPaths: takes one of");
    for (const Service &service : services) {
        std::fprintf(stderr, " %s", service.name);
    }
    std::fprintf(stderr, "; it was given '%s'\n", argc > 1 ? argv[1] : "");
    return 2;
}
