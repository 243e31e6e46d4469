// VG_ROW_CLONES: builds a plain row loop for several instruction sets and
// picks one at load time (the library's baseline is plain x86-64, whose
// vectors are four floats wide). Each clone does the same float operations
// in the same order (the library is built without contraction into fused
// multiply-adds), so results do not depend on the processor.
// Not under the sanitizers: the loader runs the clones' resolvers before the
// sanitizer runtime is up, and an instrumented resolver crashes there.
#pragma once

#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__) && \
    !defined(__SANITIZE_ADDRESS__)
#define VG_ROW_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#else
#define VG_ROW_CLONES
#endif
