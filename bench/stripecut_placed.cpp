// The stripe cut's object code at a chosen place, as a module of its own.
//
// How fast a loop runs can depend on where its code lies relative to the
// 64-byte lines the processor fetches; the same object code can run at
// different speeds in the benchmark program and in the plug-in, where the
// linker puts it elsewhere. Each stripecut_placed_<N> module links the very
// object of the stripe cut library that the plug-in links, behind 64 + N
// bytes of padding that start on a 64-byte boundary: the module's only code
// is the padding, so the cut's code begins N bytes past a boundary, rounded
// up to the alignment its object asks for (src/CMakeLists.txt). stripecut_bench
// loads the modules, times the cut in each and reports where CutStripe starts
// modulo 64 ("offset64").
#include "src/stripecut.h"

#ifndef LASERCALI_PLACEMENT_PAD
#error "LASERCALI_PLACEMENT_PAD: bytes of padding before the stripe cut's code"
#endif

#define LASERCALI_STRINGIFY_(x) #x
#define LASERCALI_STRINGIFY(x) LASERCALI_STRINGIFY_(x)

// Padding that is never run, from a 64-byte boundary on.
asm(".pushsection .text\n"
    ".p2align 6\n"
    ".skip 64 + " LASERCALI_STRINGIFY(LASERCALI_PLACEMENT_PAD) ", 0\n"
    ".popsection\n");

using StripeCutFunction = void (*)(const cv::Mat&, int, kivplugcali::StripeCut*);

// The module's one export: the address of the cut in it (a pointer, not a
// function, so that the module has no code of its own but the padding).
extern "C" __attribute__((visibility("default"))) const StripeCutFunction lasercali_placed_cut =
    &kivplugcali::CutStripe;
