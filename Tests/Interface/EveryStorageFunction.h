/* Parts of the C program. */
#ifndef EVERY_STORAGE_FUNCTION_H
#define EVERY_STORAGE_FUNCTION_H

struct CVariable;

void useEveryStorageFunction(void);

/* In C++: the library makes its variables with new[]. */
#ifdef __cplusplus
extern "C"
#endif
    void
    freeWrapper(struct CVariable *wrapper);

#endif
