// The fast transforms, written once for every length, direction and vector width.
//
// A length N is split into radices R1 x R2 x ... (fixed at compile time). The first pass takes R1 values that
// lie N/R1 apart, for W neighbouring places p at a time, turns the results by exp(i p k / N) and transposes
// them in registers, so that in the scratch array the R1 results of one p lie side by side: from then on the
// lanes of a vector run over them, every pass works on whole vectors, and twiddle factors are the same for
// all lanes. The inner passes work in place; the last one stores to the place where natural order wants each
// result.
//
// Internal linkage throughout, see lanes.h.
#pragma once

#include <cstdint>

#include "fft/lanes.h"
#include "fft/twiddle_tables.h"
#include "fft/vector_engine.h"

namespace tessaline {
namespace {

constexpr int ProductOf(const int* values, int count) {
  int product = 1;
  for (int i = 0; i < count; ++i) product *= values[i];
  return product;
}

// Twiddle factors of the double transforms: constant tables.
template <int... Radices>
struct TableTwiddles {
  static constexpr int kCount = sizeof...(Radices);
  static constexpr int kRadices[kCount] = {Radices...};
  static constexpr int N = ProductOf(kRadices, kCount);
  static constexpr int R1 = kRadices[0];

  // The factors exp(2 pi i p k / N) of the first pass, for the places p of one vector.
  template <int W>
  struct FirstPass {
    using V = Vector<double, W>;
    int position;
    TESSALINE_INLINE FirstPass(const TableTwiddles&, int firstPosition) : position(firstPosition) {}
    template <int Sign>
    TESSALINE_INLINE Complex<V> Turn(const Complex<V>& x, int k) const {
      const double* const w = LaneTwiddles<N, R1>::kValues.value + LaneTwiddles<N, R1>::Offset(position, k);
      return Rotate<Sign>(x, LoadVector<V>(w), LoadVector<V>(w + 8));
    }
  };

  // exp(2 pi i j K / M), the same for all lanes, where M is the length that pass Index divides.
  template <int Sign, int Index, typename V>
  TESSALINE_INLINE Complex<V> Turn(const Complex<V>& x, int k, int j) const {
    const UnitRootValue& w =
        ScalarTwiddles<N / ProductOf(kRadices, Index), kRadices[Index]>::kValues.value[j][k - 1];
    return Rotate<Sign>(x, w.cosine, w.sine);
  }

  template <int Sign, typename V>
  static TESSALINE_INLINE Complex<V> Scale(const Complex<V>& x) {
    return x;
  }
};

template <typename V>
TESSALINE_INLINE Complex<V> Multiply(const Complex<V>& a, const Complex<V>& b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

// exp(i k t) for k = 1 .. R - 1 from that of k = 1, in as few roundings as squaring allows.
template <int R, typename V>
TESSALINE_INLINE void RaiseToPowers(Complex<V> (&powers)[R]) {
  TESSALINE_UNROLL for (int i = 0; i < R - 2; ++i) {
    const int k = i + 2;
    powers[k] = Multiply(powers[k / 2], powers[k - k / 2]);
  }
}

// Twiddle factors of the single-precision transforms: read from the caller's quarter wave, further powers by
// multiplication.
template <int... Radices>
struct WaveTwiddles {
  static constexpr int kCount = sizeof...(Radices);
  static constexpr int kRadices[kCount] = {Radices...};
  static constexpr int N = ProductOf(kRadices, kCount);
  static constexpr int R1 = kRadices[0];

  // Positions of the inner passes' factors; those of pass `index` are cosines, then sines, by k and then j.
  static constexpr int InnerLength(int index) { return N / ProductOf(kRadices, index); }
  static constexpr int InnerCount(int index) { return InnerLength(index) / kRadices[index]; }
  static constexpr int InnerOffset(int index) {
    return index <= 1 ? 0 : InnerOffset(index - 1) + 2 * InnerCount(index - 1) * (kRadices[index - 1] - 1);
  }
  static constexpr int kInnerSize = InnerOffset(kCount - 1) + 4;  // never empty

  const float* const quarterWave;
  float inner[kInnerSize];

  explicit TESSALINE_INLINE WaveTwiddles(const float* table) : quarterWave(table) {
    Unroll<kCount - 2>([&](auto i) __attribute__((always_inline)) { FillInner<i + 1>(); });
  }

  template <int Index>
  TESSALINE_INLINE void FillInner() {
    using V = Vector<float, 4>;
    constexpr int R = kRadices[Index];
    constexpr int kInnerCount = InnerCount(Index);
    constexpr int kStep = N / InnerLength(Index);
    static_assert(kInnerCount % 4 == 0);
    for (int j = 0; j < kInnerCount; j += 4) {
      Complex<V> powers[R];
      const float* const up = quarterWave + j * kStep;
      const float* const down = quarterWave + N / 4 - j * kStep;
      powers[1] = {V{up[0], up[kStep], up[2 * kStep], up[3 * kStep]},
                   V{down[0], down[-kStep], down[-2 * kStep], down[-3 * kStep]}};
      RaiseToPowers(powers);
      TESSALINE_UNROLL for (int i = 0; i < R - 1; ++i) {
        float* const cosines = inner + InnerOffset(Index) + i * kInnerCount + j;
        StoreVector(cosines, powers[i + 1].re);
        StoreVector(cosines + (R - 1) * kInnerCount, powers[i + 1].im);
      }
    }
  }

  template <int W>
  struct FirstPass {
    using V = Vector<float, W>;
    Complex<V> powers[R1];
    TESSALINE_INLINE FirstPass(const WaveTwiddles& twiddles, int p) {
      powers[1] = {Lanes<float, W>::LoadUpwards(twiddles.quarterWave + p),
                   Lanes<float, W>::LoadDownwards(twiddles.quarterWave + N / 4 - p)};
      RaiseToPowers(powers);
    }
    template <int Sign>
    TESSALINE_INLINE Complex<V> Turn(const Complex<V>& x, int k) const {
      return Rotate<Sign>(x, powers[k].re, powers[k].im);
    }
  };

  template <int Sign, int Index, typename V>
  TESSALINE_INLINE Complex<V> Turn(const Complex<V>& x, int k, int j) const {
    const float* const cosines = inner + InnerOffset(Index) + (k - 1) * InnerCount(Index);
    return Rotate<Sign>(x, cosines[j], cosines[j + (kRadices[Index] - 1) * InnerCount(Index)]);
  }

  // exp(+) is the normalised inverse; 1 / N is a power of two, so nothing is rounded.
  template <int Sign, typename V>
  static TESSALINE_INLINE Complex<V> Scale(const Complex<V>& x) {
    constexpr float kScale = 1.0f / N;
    if constexpr (Sign > 0) return {x.re * kScale, x.im * kScale};
    return x;
  }
};

// One transform: T numbers computed with, W lanes, S numbers stored.
template <typename T, int W, int Sign, int... Radices>
struct Passes {
  static constexpr int kCount = sizeof...(Radices);
  static constexpr int kRadices[kCount] = {Radices...};
  static constexpr int N = ProductOf(kRadices, kCount);
  static constexpr int R1 = kRadices[0];
  static constexpr int RL = kRadices[kCount - 1];
  static constexpr int kRows = N / R1;
  using V = Vector<T, W>;
  using L = Lanes<T, W>;
  static_assert(R1 % L::kGroup == 0 && kRows % L::kGroup == 0);

  // A row: the R1 real parts, then the R1 imaginary parts that belong to one p. A cache line of padding after
  // every RL rows keeps the inner passes, which step in powers of two, from crowding into a few cache sets.
  static constexpr int kPadding = 64 / sizeof(T);
  static constexpr int RowOffset(int row) { return row * 2 * R1 + row / RL * kPadding; }
  static constexpr int kScratchSize = RowOffset(kRows);

  template <typename S, typename Twiddles>
  static TESSALINE_INLINE void First(const S* in, T* scratch, const Twiddles& twiddles) {
    for (int p = 0; p < kRows; p += L::kGroup) {
      TESSALINE_UNROLL for (int part = 0; part < L::kGroup / W; ++part) {
        const int position = p + part * W;
        Complex<V> x[R1];
        TESSALINE_UNROLL for (int j = 0; j < R1; ++j) {
          x[j] = Twiddles::template Scale<Sign>(L::Load(in + 2 * kRows * j, position));
        }
        Dft<R1, Sign, T>(x);
        const typename Twiddles::template FirstPass<W> factors(twiddles, position);
        TESSALINE_UNROLL for (int k = 0; k < R1 - 1; ++k) {
          x[k + 1] = factors.template Turn<Sign>(x[k + 1], k + 1);
        }
        TESSALINE_UNROLL for (int column = 0; column < R1 / W; ++column) {
          V re[W];
          V im[W];
          TESSALINE_UNROLL for (int lane = 0; lane < W; ++lane) {
            re[lane] = x[L::Element(column * W + lane)].re;
            im[lane] = x[L::Element(column * W + lane)].im;
          }
          L::Transpose(re);
          L::Transpose(im);
          TESSALINE_UNROLL for (int lane = 0; lane < W; ++lane) {
            T* const row = scratch + RowOffset(p) + RowOffset(L::Element(part * W + lane)) + column * W;
            StoreVector(row, re[lane]);
            StoreVector(row + R1, im[lane]);
          }
        }
      }
    }
  }

  // Pass Index, 1 .. kCount - 2.
  template <int Index, typename Twiddles>
  static TESSALINE_INLINE void Inner(T* scratch, const Twiddles& twiddles) {
    constexpr int R = kRadices[Index];
    constexpr int kBlocks = ProductOf(kRadices + 1, Index - 1);
    constexpr int M = kRows / kBlocks;
    constexpr int kStride = M / R;
    for (int block = 0; block < kBlocks; ++block) {
      T* const rows = scratch + RowOffset(block * M);
      InnerGroup<Index, kStride, false>(rows, 0, twiddles);
      for (int j = 1; j < kStride; ++j) InnerGroup<Index, kStride, true>(rows + RowOffset(j), j, twiddles);
    }
  }

  template <int Index, int kStride, bool kTurns, typename Twiddles>
  static TESSALINE_INLINE void InnerGroup(T* row, int j, const Twiddles& twiddles) {
    constexpr int R = kRadices[Index];
    for (int column = 0; column < R1; column += W) {
      T* const first = row + column;
      Complex<V> x[R];
      TESSALINE_UNROLL for (int q = 0; q < R; ++q) {
        x[q] = {LoadVector<V>(first + RowOffset(q * kStride)),
                LoadVector<V>(first + RowOffset(q * kStride) + R1)};
      }
      Dft<R, Sign, T>(x);
      TESSALINE_UNROLL for (int k = 0; k < R; ++k) {
        if (kTurns && k > 0) x[k] = twiddles.template Turn<Sign, Index>(x[k], k, j);
        StoreVector(first + RowOffset(k * kStride), x[k].re);
        StoreVector(first + RowOffset(k * kStride) + R1, x[k].im);
      }
    }
  }

  template <typename S>
  static TESSALINE_INLINE void Last(const T* scratch, S* out) {
    constexpr int kBlocks = kRows / RL;
    for (int block = 0; block < kBlocks; ++block) {
      const T* const rows = scratch + RowOffset(block * RL);
      S* const results = out + 2 * R1 * BlockResult(block);
      for (int column = 0; column < R1; column += W) {
        Complex<V> x[RL];
        TESSALINE_UNROLL for (int q = 0; q < RL; ++q) {
          x[q] = {LoadVector<V>(rows + RowOffset(q) + column),
                  LoadVector<V>(rows + RowOffset(q) + R1 + column)};
        }
        Dft<RL, Sign, T>(x);
        TESSALINE_UNROLL for (int k = 0; k < RL; ++k) {
          L::Store(results + 2 * (N / RL) * k, column, x[k]);
        }
      }
    }
  }

  // Block (k2, k3, ...) of the last pass, counted with the last index fastest, in units of R1 results.
  static constexpr int BlockResult(int block) {
    if constexpr (kCount <= 3) {
      return block;
    } else {
      static_assert(kCount == 4);
      return block / kRadices[2] + block % kRadices[2] * kRadices[1];
    }
  }

  template <typename S, typename Twiddles>
  static TESSALINE_INLINE void Run(const S* in, S* out, const Twiddles& twiddles) {
    // Rounded up to a cache line by hand: on Windows the compiler cannot align a stack frame.
    constexpr int kLine = 64 / sizeof(T);
    T memory[kScratchSize + kLine];
    T* const scratch = memory + (0 - reinterpret_cast<uintptr_t>(memory)) % 64 / sizeof(T);
    First(in, scratch, twiddles);
    Unroll<kCount - 2>([&](auto i) __attribute__((always_inline)) { Inner<i + 1>(scratch, twiddles); });
    Last(scratch, out);
  }
};

constexpr int Smallest(int a, int b, int c) {
  return a < b ? (a < c ? a : c) : (b < c ? b : c);
}

// As many lanes as the processor has, as long as the first pass can fill them.
template <int kMost, int R1, int... Rest>
constexpr int WidthFor() {
  constexpr int kRest[] = {Rest...};
  return Smallest(kMost, R1, ProductOf(kRest, sizeof...(Rest)));
}

template <int kMost, int Sign, int... Radices>
void TransformDouble(const double* in, double* out) {
  Passes<double, WidthFor<kMost, Radices...>(), Sign, Radices...>::Run(in, out, TableTwiddles<Radices...>{});
}

template <int kMost, int Sign, int... Radices>
void TransformFloat(float* data, const float* table) {
  Passes<float, WidthFor<kMost, Radices...>(), Sign, Radices...>::Run(data, data,
                                                                      WaveTwiddles<Radices...>{table});
}

template <int kMost, int Sign, int... Radices>
void TransformWidened(float* data) {
  Passes<double, WidthFor<kMost, Radices...>(), Sign, Radices...>::Run(data, data,
                                                                       TableTwiddles<Radices...>{});
}

// A square of kColumnGroup rows and columns from `in` to `out`, transposed. The elements are moved as doubles
// and never computed with.
template <int W>
TESSALINE_INLINE void TransposeGroup(const uint64_t* in, size_t inStride, uint64_t* out, size_t outStride) {
  using V = Vector<double, W>;
  for (size_t y = 0; y < kColumnGroup; y += W) {
    for (size_t x = 0; x < kColumnGroup; x += W) {
      V tile[W];
      TESSALINE_UNROLL for (int i = 0; i < W; ++i) {
        tile[i] = LoadVector<V>(in + (y + i) * inStride + x);
      }
      Lanes<double, W>::Transpose(tile);
      TESSALINE_UNROLL for (int i = 0; i < W; ++i) {
        StoreVector(out + (x + i) * outStride + y, tile[i]);
      }
    }
  }
}

// The rows of a large plane lie on pages of their own, which no processor fetches ahead by itself.
constexpr size_t kRowsAhead = 16;

TESSALINE_INLINE void FetchRowsAhead(const ColumnStrip& strip, const uint64_t* plane, size_t row) {
  if (row + kRowsAhead >= strip.rows) return;
  for (size_t y = row + kRowsAhead; y < row + kRowsAhead + kColumnGroup; ++y) {
    for (size_t x = 0; x < strip.columns; x += kColumnGroup)
      __builtin_prefetch(plane + y * strip.rowStride + x);
  }
}

template <int W>
void GatherColumns(const ColumnStrip& strip, const uint64_t* plane, uint64_t* columns) {
  for (size_t row = 0; row < strip.rows; row += kColumnGroup) {
    FetchRowsAhead(strip, plane, row);
    for (size_t column = 0; column < strip.columns; column += kColumnGroup) {
      TransposeGroup<W>(plane + row * strip.rowStride + column, strip.rowStride,
                        columns + column * strip.columnStride + row, strip.columnStride);
    }
  }
}

template <int W>
void ScatterColumns(const ColumnStrip& strip, uint64_t* plane, const uint64_t* columns) {
  for (size_t row = 0; row < strip.rows; row += kColumnGroup) {
    FetchRowsAhead(strip, plane, row);
    for (size_t column = 0; column < strip.columns; column += kColumnGroup) {
      TransposeGroup<W>(columns + column * strip.columnStride + row, strip.columnStride,
                        plane + row * strip.rowStride + column, strip.rowStride);
    }
  }
}

constexpr int kShortestPlane = 1024;  // of what the steps of the removal transform
constexpr int kLocalPlane = 128;      // but for the squares of restoration/local_spectrum.h, in floats

template <int kDoubleLanes, int kFloatLanes>
constexpr VectorEngine MakeVectorEngine() {
  VectorEngine engine{};
  const auto add = [&engine]<int... Radices>(std::integer_sequence<int, Radices...>, int index) {
    constexpr int kLength = (Radices * ...);
    if constexpr (!kIsFetched || kLength >= kShortestPlane) {
      engine.transform[index][0] = TransformDouble<kDoubleLanes, +1, Radices...>;
      engine.transformWidened[index][1] = TransformWidened<kDoubleLanes, -1, Radices...>;
    }
    if constexpr (!kIsFetched || kLength >= kShortestPlane || kLength == kLocalPlane) {
      engine.transformFloat[index][0] = TransformFloat<kFloatLanes, +1, Radices...>;
      engine.transformFloat[index][1] = TransformFloat<kFloatLanes, -1, Radices...>;
    }
    if constexpr (!kIsFetched) {
      engine.transform[index][1] = TransformDouble<kDoubleLanes, -1, Radices...>;
      engine.transformWidened[index][0] = TransformWidened<kDoubleLanes, +1, Radices...>;
    }
  };
  add(std::integer_sequence<int, 8, 8>{}, 0);
  add(std::integer_sequence<int, 16, 8>{}, 1);
  add(std::integer_sequence<int, 16, 16>{}, 2);
  add(std::integer_sequence<int, 8, 8, 8>{}, 3);
  add(std::integer_sequence<int, 16, 8, 8>{}, 4);
  add(std::integer_sequence<int, 16, 16, 8>{}, 5);
  add(std::integer_sequence<int, 16, 16, 16>{}, 6);
  add(std::integer_sequence<int, 16, 8, 8, 8>{}, 7);
  engine.gatherColumns = GatherColumns<kDoubleLanes>;
  engine.scatterColumns = ScatterColumns<kDoubleLanes>;
  return engine;
}

}  // namespace
}  // namespace tessaline
