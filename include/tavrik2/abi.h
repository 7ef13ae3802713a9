/* Common ground of every header whose types cross the module boundary. C11 and C++20.
 *
 * Everything that crosses is little-endian and packed; fields may be at odd byte positions, so read them by value.
 * Pointers are 8 bytes wide: the format exists on 64-bit systems only. */
#ifndef TAVRIK2_ABI_H
#define TAVRIK2_ABI_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define TAVRIK_EXTERN_C_BEGIN extern "C" {
#define TAVRIK_EXTERN_C_END }
#define TAVRIK_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define TAVRIK_EXTERN_C_BEGIN
#define TAVRIK_EXTERN_C_END
#define TAVRIK_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

/* A packed structure type. The attribute, unlike #pragma pack, makes compilers refuse references to its fields. */
#define TAVRIK_PACKED __attribute__((packed))

/* The same for an object that the host makes of pointers and aligns as such, so that it can be part of a larger one. */
#define TAVRIK_PACKED_OBJECT __attribute__((packed, aligned(8)))

/* An exported function of the module. */
#if defined(_WIN32) && defined(TAVRIK2_BUILDING_MODULE)
#define TAVRIK_API __declspec(dllexport)
#elif defined(_WIN32)
#define TAVRIK_API
#else
#define TAVRIK_API __attribute__((visibility("default")))
#endif

/* Pin the layout of a boundary type: its size in bytes, and each field at its byte offset. */
#define TAVRIK_ASSERT_SIZE(type, bytes) TAVRIK_STATIC_ASSERT(sizeof(type) == (bytes), #type " must be " #bytes " bytes")
#define TAVRIK_ASSERT_OFFSET(type, field, byte)                                                                        \
    TAVRIK_STATIC_ASSERT(offsetof(type, field) == (byte), #type "." #field " must be at byte " #byte)

TAVRIK_STATIC_ASSERT(sizeof(void *) == 8, "the module's formats need 8-byte pointers");

#endif
