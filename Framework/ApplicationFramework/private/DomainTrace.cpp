#include "DomainTrace.h"

#include <new>
#include <string>

#include "AfResult.h"

void af::composeAndLog(VoxTrace &trace, VoxTraceLevel level, const VoxTraceHeader &header, const char *text,
                       const EAFResult *result) {
    try {
        // Not a stream: the library would need none of the standard library's otherwise, and they are large.
        std::string message = text;
        if (result != nullptr) {
            message += AfResult::toString(*result);
        }
        trace.logMsg(level, header, message.c_str());
    } catch (const std::bad_alloc &) { // see the header
    }
}
