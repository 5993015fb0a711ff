// Which sanitizers the code is built with, for the few places that must act differently under
// them: reading past a text's end inside its page (harmless on the hardware, flagged by the
// checkers) and carving objects out of shared blocks (the checkers are told about each piece).
//
//   DATAPARSER_ADDRESS_SANITIZER    defined under AddressSanitizer
//   kCheckedMemory                  true under AddressSanitizer, ThreadSanitizer or
//                                   MemorySanitizer: every byte read must belong to its object
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DATAPARSER_ADDRESS_SANITIZER 1
#endif
#if __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define DATAPARSER_OTHER_MEMORY_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(DATAPARSER_ADDRESS_SANITIZER)
#define DATAPARSER_ADDRESS_SANITIZER 1
#endif
#if defined(__SANITIZE_THREAD__) && !defined(DATAPARSER_OTHER_MEMORY_SANITIZER)
#define DATAPARSER_OTHER_MEMORY_SANITIZER 1
#endif

namespace dataparser {

#if defined(DATAPARSER_ADDRESS_SANITIZER) || defined(DATAPARSER_OTHER_MEMORY_SANITIZER)
inline constexpr bool kCheckedMemory = true;
#else
inline constexpr bool kCheckedMemory = false;
#endif

}  // namespace dataparser
