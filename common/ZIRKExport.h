// Marks the symbols the plug-in exports; everything else is hidden.
#ifndef ZIRK_EXPORT_H_
#define ZIRK_EXPORT_H_

#define ZIRK_EXPORT __attribute__((visibility("default")))

#endif
