#include "fft/twiddle_tables.h"

#include "platform/cpu.h"

namespace tessaline {

namespace {

template <int N, int R>
constexpr typename LaneTwiddles<N, R>::Values MakeLaneTwiddles() {
  constexpr int kOrder[4] = {0, 2, 1, 3};
  typename LaneTwiddles<N, R>::Values twiddles{};
  for (int position = 0; position < N / R; ++position) {
    const int p = position / 4 * 4 + kOrder[position % 4];
    for (int k = 1; k < R; ++k) {
      const UnitRootValue root = UnitRoot(N, int64_t{p} * k);
      const int offset = LaneTwiddles<N, R>::Offset(position, k);
      twiddles.value[offset] = root.cosine;
      twiddles.value[offset + 8] = root.sine;
    }
  }
  return twiddles;
}

template <int M, int R>
constexpr typename ScalarTwiddles<M, R>::Values MakeScalarTwiddles() {
  typename ScalarTwiddles<M, R>::Values twiddles{};
  for (int j = 0; j < M / R; ++j) {
    for (int k = 1; k < R; ++k) twiddles.value[j][k - 1] = UnitRoot(M, int64_t{j} * k);
  }
  return twiddles;
}

// The same when the program starts, which fetches nothing for it: 230 KB of tables come from 16 KB of roots.
template <int N, int R>
typename LaneTwiddles<N, R>::Values MakeLaneTwiddlesAtStart() {
  return MakeLaneTwiddles<N, R>();
}

}  // namespace

template <int N, int R>
alignas(64) const typename LaneTwiddles<N, R>::Values LaneTwiddles<N, R>::kValues = [] {
  if constexpr (kIsFetched) {
    return MakeLaneTwiddlesAtStart<N, R>();
  } else {
    constexpr Values kMade = MakeLaneTwiddles<N, R>();
    return kMade;
  }
}();
template <int M, int R>
alignas(64) const
    typename ScalarTwiddles<M, R>::Values ScalarTwiddles<M, R>::kValues = MakeScalarTwiddles<M, R>();

template struct LaneTwiddles<64, 8>;
template struct LaneTwiddles<128, 16>;
template struct LaneTwiddles<256, 16>;
template struct LaneTwiddles<512, 8>;
template struct LaneTwiddles<1024, 16>;
template struct LaneTwiddles<2048, 16>;
template struct LaneTwiddles<4096, 16>;
template struct LaneTwiddles<8192, 16>;
template struct ScalarTwiddles<64, 8>;
template struct ScalarTwiddles<128, 16>;
template struct ScalarTwiddles<256, 16>;
template struct ScalarTwiddles<512, 8>;

}  // namespace tessaline
