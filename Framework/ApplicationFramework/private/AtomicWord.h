/// @file
/// Words of plain records that several threads share. The records are part of a C interface, so the words
/// themselves can not be std::atomic.
#pragma once

namespace af {

template <class Word>
Word loadAcquire(const Word &word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

template <class Word>
void storeRelease(Word &word, Word value) {
    __atomic_store_n(&word, value, __ATOMIC_RELEASE);
}

} // namespace af
