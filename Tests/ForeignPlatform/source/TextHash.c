#include "TextHash.h"

/* FNV-1a */
uint32_t TextHash_Of(const char *text) {
    uint32_t hash = 2166136261u;
    for (; *text != '\0'; ++text) {
        hash = (hash ^ (uint8_t)*text) * 16777619u;
    }
    return hash;
}
