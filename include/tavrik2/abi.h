/* Common ground of every header whose types cross the module boundary. C11 and C++11 or newer; GCC, clang, MSVC.
 *
 * Everything that crosses is little-endian and packed; fields may be at odd byte positions, so read them by value and
 * take no pointer to them. Pointers are 8 bytes wide: the format exists on 64-bit systems only. Functions have the
 * calling convention that the system's C compiler uses by default. */
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

/* TAVRIK_PACKED: a packed structure type. TAVRIK_PACKED_OBJECT: the same for an object that the host makes of pointers
 * and aligns as such, so that it can be part of a larger one. Types that carry either are between TAVRIK_PACKED_BEGIN
 * and TAVRIK_PACKED_END. The attribute, unlike the pragma, makes compilers refuse references to fields. */
#ifdef _MSC_VER
#define TAVRIK_PACKED
#define TAVRIK_PACKED_OBJECT __declspec(align(8))
#define TAVRIK_PACKED_BEGIN __pragma(pack(push, 1))
#define TAVRIK_PACKED_END __pragma(pack(pop))
#else
#define TAVRIK_PACKED __attribute__((packed))
#define TAVRIK_PACKED_OBJECT __attribute__((packed, aligned(8)))
#define TAVRIK_PACKED_BEGIN
#define TAVRIK_PACKED_END
#endif

/* An exported function of the module. Hosts look functions up by name in the loaded module (dlsym, GetProcAddress); a
 * pointer type for each export is declared beside it. Nothing is linked. */
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
