/* Marks what libkelplatform exports; everything else in it is hidden. */
#ifndef PLATFORM_EXPORT_H
#define PLATFORM_EXPORT_H
#define PLATFORM_API __attribute__((visibility("default")))
#endif
