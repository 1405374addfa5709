/* Marks what the shared library exports; everything else in it is hidden. */
#ifndef HX_EXPORT_H
#define HX_EXPORT_H

#define HX_EXPORT __attribute__((visibility("default")))

#endif
