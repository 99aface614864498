#include "Cores.h"

#include <sched.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace {

/// Those that the process was started with, before it moved itself.
const std::vector<int> &coresOfProcess() {
    static const std::vector<int> cores = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        if (sched_getaffinity(0, sizeof set, &set) != 0) {
            throw std::system_error(errno, std::generic_category(), "sched_getaffinity");
        }
        std::vector<int> found;
        for (int core = 0; core < CPU_SETSIZE; ++core) {
            if (CPU_ISSET(core, &set)) {
                found.push_back(core);
            }
        }
        return found;
    }();
    return cores;
}

} // namespace

int speed::firstCore() {
    return coresOfProcess().back();
}

int speed::secondCore() {
    return coresOfProcess().front();
}

void speed::runOn(int core) {
    coresOfProcess();
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(core, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) {
        throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
    }
}
