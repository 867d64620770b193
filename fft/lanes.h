// Vectors of numbers behind a few names: load, store, transpose.
//
// Compiled once per instruction set, so everything here has internal linkage: an inline function shared
// between translation units could be kept in its AVX-512 form and then be called on a processor without it.
#pragma once

#include <utility>

#include "fft/butterflies.h"

namespace tessaline {
namespace {

template <typename T, int W>
struct VectorOf {
  typedef T Type __attribute__((vector_size(W * sizeof(T))));
};
template <typename T, int W>
using Vector = typename VectorOf<T, W>::Type;

template <typename V, typename T>
TESSALINE_INLINE V LoadVector(const T* source) {
  V v;
  __builtin_memcpy(&v, source, sizeof v);
  return v;
}

template <typename V, typename T>
TESSALINE_INLINE void StoreVector(T* destination, const V& v) {
  __builtin_memcpy(destination, &v, sizeof v);
}

// Calls body(0), body(1), ... body(Count - 1) with constants.
template <int Count, typename Body>
TESSALINE_INLINE void Unroll(const Body& body) {
  [&]<int... I>(std::integer_sequence<int, I...>) __attribute__((always_inline)) {
    (body(std::integral_constant<int, I>{}), ...);
  }
  (std::make_integer_sequence<int, Count>{});
}

// W numbers in memory, of type S there and T in the vector: the same, or float widened to double.
template <typename T, int W, typename S>
TESSALINE_INLINE Vector<T, W> LoadAs(const S* source) {
  return __builtin_convertvector(LoadVector<Vector<S, W>>(source), Vector<T, W>);
}
template <typename T, int W, typename S>
TESSALINE_INLINE void StoreAs(S* destination, const Vector<T, W>& v) {
  StoreVector(destination, __builtin_convertvector(v, Vector<S, W>));
}

// How complex values that lie side by side in memory are spread over the lanes of a vector of real and one of
// imaginary parts. Lane order is whatever costs the fewest shuffles: the value at `position` (counted in
// lanes, vector after vector) is value Element(position) in memory. For doubles the order is the same at all
// widths (0, 2, 1, 3 in every four), as they share tables of twiddle factors.
//
//   Load, Store    the W values at positions position .. position + W - 1 of a row of interleaved values
//   Transpose      lane i of vector j to lane j of vector i
template <typename T, int W>
struct Lanes;

template <>
struct Lanes<double, 2> {
  using V = Vector<double, 2>;
  static constexpr int kGroup = 4;  // Element() keeps multiples of this
  static constexpr int Element(int position) {
    constexpr int kOrder[4] = {0, 2, 1, 3};
    return position / 4 * 4 + kOrder[position % 4];
  }
  template <typename S>
  static TESSALINE_INLINE Complex<V> Load(const S* row, int position) {
    const V a = LoadAs<double, 2>(row + 2 * Element(position));
    const V b = LoadAs<double, 2>(row + 2 * Element(position + 1));
    return {__builtin_shufflevector(a, b, 0, 2), __builtin_shufflevector(a, b, 1, 3)};
  }
  template <typename S>
  static TESSALINE_INLINE void Store(S* row, int position, const Complex<V>& x) {
    StoreAs<double, 2>(row + 2 * Element(position), __builtin_shufflevector(x.re, x.im, 0, 2));
    StoreAs<double, 2>(row + 2 * Element(position + 1), __builtin_shufflevector(x.re, x.im, 1, 3));
  }
  static TESSALINE_INLINE void Transpose(V (&r)[2]) {
    const V first = __builtin_shufflevector(r[0], r[1], 0, 2);
    r[1] = __builtin_shufflevector(r[0], r[1], 1, 3);
    r[0] = first;
  }
};

template <>
struct Lanes<double, 4> {
  using V = Vector<double, 4>;
  static constexpr int kGroup = 4;
  static constexpr int Element(int position) { return Lanes<double, 2>::Element(position); }
  template <typename S>
  static TESSALINE_INLINE Complex<V> Load(const S* row, int position) {
    const V a = LoadAs<double, 4>(row + 2 * position);
    const V b = LoadAs<double, 4>(row + 2 * position + 4);
    return {__builtin_shufflevector(a, b, 0, 4, 2, 6), __builtin_shufflevector(a, b, 1, 5, 3, 7)};
  }
  template <typename S>
  static TESSALINE_INLINE void Store(S* row, int position, const Complex<V>& x) {
    StoreAs<double, 4>(row + 2 * position, __builtin_shufflevector(x.re, x.im, 0, 4, 2, 6));
    StoreAs<double, 4>(row + 2 * position + 4, __builtin_shufflevector(x.re, x.im, 1, 5, 3, 7));
  }
  static TESSALINE_INLINE void Transpose(V (&r)[4]) {
    const V a = __builtin_shufflevector(r[0], r[1], 0, 4, 2, 6);
    const V b = __builtin_shufflevector(r[0], r[1], 1, 5, 3, 7);
    const V c = __builtin_shufflevector(r[2], r[3], 0, 4, 2, 6);
    const V d = __builtin_shufflevector(r[2], r[3], 1, 5, 3, 7);
    r[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5);
    r[1] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
    r[2] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
    r[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
  }
};

// Four vectors of four 16-byte blocks, given as lanes of `Width` numbers: block i of vector j to block j of
// i.
template <typename V>
TESSALINE_INLINE void TransposeBlocks(V& a, V& b, V& c, V& d) {
  typedef long long Block __attribute__((vector_size(64)));
  const auto pick = [](Block x, Block y, auto isOdd) __attribute__((always_inline)) {
    if constexpr (isOdd.value) return __builtin_shufflevector(x, y, 2, 3, 6, 7, 10, 11, 14, 15);
    return __builtin_shufflevector(x, y, 0, 1, 4, 5, 8, 9, 12, 13);
  };
  constexpr std::false_type kEven{};
  constexpr std::true_type kOdd{};
  const Block evenAB = pick((Block)a, (Block)b, kEven);
  const Block oddAB = pick((Block)a, (Block)b, kOdd);
  const Block evenCD = pick((Block)c, (Block)d, kEven);
  const Block oddCD = pick((Block)c, (Block)d, kOdd);
  a = (V)pick(evenAB, evenCD, kEven);
  b = (V)pick(oddAB, oddCD, kEven);
  c = (V)pick(evenAB, evenCD, kOdd);
  d = (V)pick(oddAB, oddCD, kOdd);
}

template <>
struct Lanes<double, 8> {
  using V = Vector<double, 8>;
  static constexpr int kGroup = 8;
  static constexpr int Element(int position) { return Lanes<double, 2>::Element(position); }
  template <typename S>
  static TESSALINE_INLINE Complex<V> Load(const S* row, int position) {
    const V a = LoadAs<double, 8>(row + 2 * position);
    const V b = LoadAs<double, 8>(row + 2 * position + 8);
    return {__builtin_shufflevector(a, b, 0, 4, 2, 6, 8, 12, 10, 14),
            __builtin_shufflevector(a, b, 1, 5, 3, 7, 9, 13, 11, 15)};
  }
  template <typename S>
  static TESSALINE_INLINE void Store(S* row, int position, const Complex<V>& x) {
    StoreAs<double, 8>(row + 2 * position, __builtin_shufflevector(x.re, x.im, 0, 8, 2, 10, 1, 9, 3, 11));
    StoreAs<double, 8>(row + 2 * position + 8,
                       __builtin_shufflevector(x.re, x.im, 4, 12, 6, 14, 5, 13, 7, 15));
  }
  static TESSALINE_INLINE void Transpose(V (&r)[8]) {
    for (int i = 0; i < 8; i += 2) {
      const V low = __builtin_shufflevector(r[i], r[i + 1], 0, 8, 2, 10, 4, 12, 6, 14);
      r[i + 1] = __builtin_shufflevector(r[i], r[i + 1], 1, 9, 3, 11, 5, 13, 7, 15);
      r[i] = low;
    }
    TransposeBlocks(r[0], r[2], r[4], r[6]);
    TransposeBlocks(r[1], r[3], r[5], r[7]);
  }
};

template <>
struct Lanes<float, 4> {
  using V = Vector<float, 4>;
  static constexpr int kGroup = 4;
  static constexpr int Element(int position) { return position; }
  static TESSALINE_INLINE Complex<V> Load(const float* row, int position) {
    const V a = LoadVector<V>(row + 2 * position);
    const V b = LoadVector<V>(row + 2 * position + 4);
    return {__builtin_shufflevector(a, b, 0, 2, 4, 6), __builtin_shufflevector(a, b, 1, 3, 5, 7)};
  }
  static TESSALINE_INLINE void Store(float* row, int position, const Complex<V>& x) {
    StoreVector(row + 2 * position, __builtin_shufflevector(x.re, x.im, 0, 4, 1, 5));
    StoreVector(row + 2 * position + 4, __builtin_shufflevector(x.re, x.im, 2, 6, 3, 7));
  }
  // W numbers in memory order, and the same backwards, into lane order.
  static TESSALINE_INLINE V LoadUpwards(const float* first) { return LoadVector<V>(first); }
  static TESSALINE_INLINE V LoadDownwards(const float* first) {
    const V v = LoadVector<V>(first - 3);
    return __builtin_shufflevector(v, v, 3, 2, 1, 0);
  }
  static TESSALINE_INLINE void Transpose(V (&r)[4]) {
    const V a = __builtin_shufflevector(r[0], r[1], 0, 4, 1, 5);
    const V b = __builtin_shufflevector(r[0], r[1], 2, 6, 3, 7);
    const V c = __builtin_shufflevector(r[2], r[3], 0, 4, 1, 5);
    const V d = __builtin_shufflevector(r[2], r[3], 2, 6, 3, 7);
    r[0] = __builtin_shufflevector(a, c, 0, 1, 4, 5);
    r[1] = __builtin_shufflevector(a, c, 2, 3, 6, 7);
    r[2] = __builtin_shufflevector(b, d, 0, 1, 4, 5);
    r[3] = __builtin_shufflevector(b, d, 2, 3, 6, 7);
  }
};

template <>
struct Lanes<float, 8> {
  using V = Vector<float, 8>;
  static constexpr int kGroup = 8;
  static constexpr int Element(int position) {
    constexpr int kOrder[8] = {0, 1, 4, 5, 2, 3, 6, 7};
    return position / 8 * 8 + kOrder[position % 8];
  }
  static TESSALINE_INLINE Complex<V> Load(const float* row, int position) {
    const V a = LoadVector<V>(row + 2 * position);
    const V b = LoadVector<V>(row + 2 * position + 8);
    return {__builtin_shufflevector(a, b, 0, 2, 8, 10, 4, 6, 12, 14),
            __builtin_shufflevector(a, b, 1, 3, 9, 11, 5, 7, 13, 15)};
  }
  static TESSALINE_INLINE void Store(float* row, int position, const Complex<V>& x) {
    StoreVector(row + 2 * position, __builtin_shufflevector(x.re, x.im, 0, 8, 1, 9, 4, 12, 5, 13));
    StoreVector(row + 2 * position + 8, __builtin_shufflevector(x.re, x.im, 2, 10, 3, 11, 6, 14, 7, 15));
  }
  static TESSALINE_INLINE V LoadUpwards(const float* first) {
    const V v = LoadVector<V>(first);
    return __builtin_shufflevector(v, v, 0, 1, 4, 5, 2, 3, 6, 7);
  }
  static TESSALINE_INLINE V LoadDownwards(const float* first) {
    const V v = LoadVector<V>(first - 7);
    return __builtin_shufflevector(v, v, 7, 6, 3, 2, 5, 4, 1, 0);
  }
  static TESSALINE_INLINE void Transpose(V (&r)[8]) {
    for (int i = 0; i < 8; i += 4) {
      const V a = __builtin_shufflevector(r[i], r[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
      const V b = __builtin_shufflevector(r[i], r[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
      const V c = __builtin_shufflevector(r[i + 2], r[i + 3], 0, 8, 1, 9, 4, 12, 5, 13);
      const V d = __builtin_shufflevector(r[i + 2], r[i + 3], 2, 10, 3, 11, 6, 14, 7, 15);
      r[i] = __builtin_shufflevector(a, c, 0, 1, 8, 9, 4, 5, 12, 13);
      r[i + 1] = __builtin_shufflevector(a, c, 2, 3, 10, 11, 6, 7, 14, 15);
      r[i + 2] = __builtin_shufflevector(b, d, 0, 1, 8, 9, 4, 5, 12, 13);
      r[i + 3] = __builtin_shufflevector(b, d, 2, 3, 10, 11, 6, 7, 14, 15);
    }
    for (int i = 0; i < 4; ++i) {
      const V low = __builtin_shufflevector(r[i], r[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
      r[i + 4] = __builtin_shufflevector(r[i], r[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
      r[i] = low;
    }
  }
};

template <>
struct Lanes<float, 16> {
  using V = Vector<float, 16>;
  static constexpr int kGroup = 16;
  static constexpr int Element(int position) {
    constexpr int kOrder[16] = {0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15};
    return position / 16 * 16 + kOrder[position % 16];
  }
  static TESSALINE_INLINE Complex<V> Load(const float* row, int position) {
    const V a = LoadVector<V>(row + 2 * position);
    const V b = LoadVector<V>(row + 2 * position + 16);
    return {__builtin_shufflevector(a, b, 0, 2, 16, 18, 4, 6, 20, 22, 8, 10, 24, 26, 12, 14, 28, 30),
            __builtin_shufflevector(a, b, 1, 3, 17, 19, 5, 7, 21, 23, 9, 11, 25, 27, 13, 15, 29, 31)};
  }
  static TESSALINE_INLINE void Store(float* row, int position, const Complex<V>& x) {
    StoreVector(row + 2 * position, UnpackLow(x.re, x.im));
    StoreVector(row + 2 * position + 16, UnpackHigh(x.re, x.im));
  }
  static TESSALINE_INLINE V LoadUpwards(const float* first) {
    const V v = LoadVector<V>(first);
    return __builtin_shufflevector(v, v, 0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
  }
  static TESSALINE_INLINE V LoadDownwards(const float* first) {
    const V v = LoadVector<V>(first - 15);
    return __builtin_shufflevector(v, v, 15, 14, 7, 6, 13, 12, 5, 4, 11, 10, 3, 2, 9, 8, 1, 0);
  }
  static TESSALINE_INLINE void Transpose(V (&r)[16]) {
    typedef double D __attribute__((vector_size(64)));
    for (int i = 0; i < 16; i += 4) {
      const D a = (D)UnpackLow(r[i], r[i + 1]);
      const D b = (D)UnpackHigh(r[i], r[i + 1]);
      const D c = (D)UnpackLow(r[i + 2], r[i + 3]);
      const D d = (D)UnpackHigh(r[i + 2], r[i + 3]);
      r[i] = (V)__builtin_shufflevector(a, c, 0, 8, 2, 10, 4, 12, 6, 14);
      r[i + 1] = (V)__builtin_shufflevector(a, c, 1, 9, 3, 11, 5, 13, 7, 15);
      r[i + 2] = (V)__builtin_shufflevector(b, d, 0, 8, 2, 10, 4, 12, 6, 14);
      r[i + 3] = (V)__builtin_shufflevector(b, d, 1, 9, 3, 11, 5, 13, 7, 15);
    }
    for (int i = 0; i < 4; ++i) TransposeBlocks(r[i], r[i + 4], r[i + 8], r[i + 12]);
  }

 private:
  static TESSALINE_INLINE V UnpackLow(const V& a, const V& b) {
    return __builtin_shufflevector(a, b, 0, 16, 1, 17, 4, 20, 5, 21, 8, 24, 9, 25, 12, 28, 13, 29);
  }
  static TESSALINE_INLINE V UnpackHigh(const V& a, const V& b) {
    return __builtin_shufflevector(a, b, 2, 18, 3, 19, 6, 22, 7, 23, 10, 26, 11, 27, 14, 30, 15, 31);
  }
};

}  // namespace
}  // namespace tessaline
