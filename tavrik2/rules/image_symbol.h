/* Symbols for data inside a larger object, and data that the linker keeps although nothing refers to it. */
#ifndef TAVRIK2_RULES_IMAGE_SYMBOL_H
#define TAVRIK2_RULES_IMAGE_SYMBOL_H

/* TAVRIK_IMAGE_SYMBOL(name, image, offset, size): makes `name` (a symbol without mangling, declared elsewhere) name
 * the `size` bytes at byte `offset` of the object `image`. The compiler orders separate objects as it likes;
 * members of one object stay in order. `offset` and `size` are literals.
 *
 * TAVRIK_KEEP: the definition survives the linker's removal of what nothing refers to. On Windows the linker keeps or
 * drops the read-only data of an object file as a whole, provided that it is compiled without -fdata-sections. */
#ifdef __ELF__
#define TAVRIK_KEEP __attribute__((used, retain))
#define TAVRIK_IMAGE_SYMBOL(name, image, offset, size)                                                                 \
    asm(".globl " #name "\n"                                                                                           \
        ".hidden " #name "\n"                                                                                          \
        ".type " #name ", @object\n"                                                                                   \
        ".size " #name ", " #size "\n"                                                                                 \
        ".set " #name ", " #image " + " #offset "\n")
#else
#define TAVRIK_KEEP __attribute__((used))
#define TAVRIK_IMAGE_SYMBOL(name, image, offset, size)                                                                 \
    asm(".globl " #name "\n"                                                                                           \
        ".set " #name ", " #image " + " #offset "\n")
#endif

#endif
