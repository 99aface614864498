#include "CVariable.h"
#include "EveryStorageFunction.h"

void freeWrapper(CVariable *wrapper) {
    delete[] wrapper;
}
