// Sixteen bytes (or four floats) at a time, for the stripe cut.
//
// The vectors are the GCC/Clang vector extensions: +, -, &, |, ==, <, <=, ...
// work lane by lane and compile to SSE2 on x86-64 and to NEON on arm64 and
// armhf (any other target gets plain code from the same source). A compare
// gives a mask vector, all ones in the lanes where it holds. This header adds
// the few operations the extensions do not have: loads from any address, the
// unsigned byte maximum, and a mask turned into an integer whose lane bits
// can be tested and searched with ordinary integer code.
//
// Lane bits: lane i of a mask owns kLaneBits bits of LaneBits(mask), starting
// at bit i * kLaneBits, all set when the lane is. x86-64 packs one bit per
// lane (16 bits); NEON has no such instruction, and four bits per lane
// (64 bits) is its cheapest form. Code that reads lane bits goes through the
// helpers below and never assumes either width.
#ifndef LASERCALI_SRC_SIMD16_H_
#define LASERCALI_SRC_SIMD16_H_

#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace kivplugcali::simd16 {

typedef uint8_t Bytes __attribute__((vector_size(16)));
typedef float Floats __attribute__((vector_size(16)));
typedef int32_t Ints __attribute__((vector_size(16)));
typedef uint32_t Words __attribute__((vector_size(16)));

constexpr int kLanes = 16;

// The same sixteen bytes seen as another vector type (compilers give byte
// compares a char or a signed char mask type).
template <typename To, typename From>
inline To Reinterpret(From v) {
  static_assert(sizeof(To) == 16 && sizeof(From) == 16, "16-byte vectors only");
  To to;
  std::memcpy(&to, &v, 16);
  return to;
}

// Sixteen bytes from any address.
inline Bytes Load(const uint8_t* p) {
  Bytes v;
  std::memcpy(&v, p, 16);
  return v;
}

// Stores sixteen bytes at any address.
inline void Store(uint8_t* p, Bytes v) { std::memcpy(p, &v, 16); }

// Lane by lane, the larger of two unsigned bytes.
inline Bytes Max(Bytes a, Bytes b) {
#if defined(__SSE2__)
  return Reinterpret<Bytes>(_mm_max_epu8(Reinterpret<__m128i>(a), Reinterpret<__m128i>(b)));
#elif defined(__ARM_NEON)
  return Reinterpret<Bytes>(vmaxq_u8(Reinterpret<uint8x16_t>(a), Reinterpret<uint8x16_t>(b)));
#else
  for (int i = 0; i < kLanes; ++i) a[i] = a[i] < b[i] ? b[i] : a[i];
  return a;
#endif
}

// Lanes 0 and 1 swapped, and lanes 2 and 3.
inline Ints SwapPairs(Ints v) { return __builtin_shufflevector(v, v, 1, 0, 3, 2); }

#if defined(__ARM_NEON) && !defined(__SSE2__)
constexpr int kLaneBits = 4;
#else
constexpr int kLaneBits = 1;
#endif
constexpr uint64_t kAllLanes = kLaneBits == 1 ? 0xFFFFu : ~uint64_t{0};

// The lane bits of a byte mask (any 16-byte vector whose lanes are all zeros
// or all ones).
template <typename Mask>
inline uint64_t LaneBits(Mask mask) {
#if defined(__SSE2__)
  return static_cast<uint32_t>(_mm_movemask_epi8(Reinterpret<__m128i>(mask)));
#elif defined(__ARM_NEON)
  // Shifting each 16-bit pair right by 4 and keeping its low byte leaves the
  // high nibble of the even lane and the low nibble of the odd lane.
  const uint8x8_t nibbles = vshrn_n_u16(Reinterpret<uint16x8_t>(mask), 4);
  return vget_lane_u64(vreinterpret_u64_u8(nibbles), 0);
#else
  const Bytes lanes = Reinterpret<Bytes>(mask);
  uint64_t bits = 0;
  for (int i = 0; i < kLanes; ++i) bits |= static_cast<uint64_t>(lanes[i] & 1) << i;
  return bits;
#endif
}

// Lane bits of lanes 0 to k - 1 (none when k <= 0, all when k >= 16).
inline uint64_t LanesBelow(int k) {
  if (k <= 0) return 0;
  if (k >= kLanes) return kAllLanes;
  return (uint64_t{1} << (k * kLaneBits)) - 1;
}

// Lane bits of lanes k to 15.
inline uint64_t LanesFrom(int k) { return kAllLanes & ~LanesBelow(k); }

// Lane bits of lane k alone (0 <= k < 16).
inline uint64_t Lane(int k) { return LanesBelow(k + 1) & ~LanesBelow(k); }

// The lowest and the highest lane whose bits are set; `bits` must not be 0.
inline int LowestLane(uint64_t bits) { return __builtin_ctzll(bits) / kLaneBits; }
inline int HighestLane(uint64_t bits) { return (63 - __builtin_clzll(bits)) / kLaneBits; }

}  // namespace kivplugcali::simd16

#endif  // LASERCALI_SRC_SIMD16_H_
