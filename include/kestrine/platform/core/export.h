#ifndef KESTRINE_PLATFORM_CORE_EXPORT_H_
#define KESTRINE_PLATFORM_CORE_EXPORT_H_

// The core library is built with hidden visibility; what clients may use is marked here.
#define KPL_CORE_API __attribute__((visibility("default")))

#endif  // KESTRINE_PLATFORM_CORE_EXPORT_H_
