#include "StorageRows.h"

#include "Comparison.h"

namespace speed {

void addStorageRows() {
    addLookUpRows();
    addPathTableRows();
    addWalkRows();
}

} // namespace speed
