#ifndef ANDROID_KEYED_VECTOR_H
#define ANDROID_KEYED_VECTOR_H

#include <utils/SortedVector.h>
#include <utils/TypeHelpers.h>

#endif
