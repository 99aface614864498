/* The check that the C programs share. */
#ifndef CHECK_H
#define CHECK_H

#include <stdio.h>
#include <stdlib.h>

#define CHECK(condition)                                                                                               \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                                    \
            exit(1);                                                                                                   \
        }                                                                                                              \
    } while (0)

#endif
