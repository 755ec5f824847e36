// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/resample.h"

#include <sys/auxv.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "maker/kernel.h"

// The compiler reads this file once for each kind of vector instructions; the processor's best is chosen at run time.
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "maker/resample.cpp"
#include <hwy/foreach_target.h>  // before highway.h
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace tavithumb::maker::HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128

void ResampleInto(const Plane& source, const Kernel& across, const Kernel& down, Plane* result) {
  ResamplePlainlyInto(source, across, down, result);
}

#else

namespace hn = hwy::HWY_NAMESPACE;

// At most two blocks of 128 bits: in wider vectors, too many places of a row would have to be gathered.
constexpr hn::CappedTag<std::uint8_t, 32> kBytes;
constexpr hn::Repartition<std::int16_t, decltype(kBytes)> kWords;
constexpr hn::Repartition<std::int32_t, decltype(kBytes)> kSums;
using Bytes8 = hn::Vec<decltype(kBytes)>;
using Words16 = hn::Vec<decltype(kWords)>;
using Sums32 = hn::Vec<decltype(kSums)>;

constexpr std::size_t kBlock = 16;
constexpr std::size_t kResultsPerBlock = 4;
constexpr std::size_t kBlocks = hn::MaxLanes(kBytes) / kBlock;
static_assert(kBlocks == 1 || kBlocks == 2, "see Windows()");

// Sums of products of pairs; some processors collect the two halves of a vector apart.
class Sum {
 public:
  HWY_INLINE Sum() : one_(hn::Zero(kSums)), other_(hn::Zero(kSums)) {}
  HWY_INLINE void Add(Words16 samples, Words16 weights) {
    one_ = hn::ReorderWidenMulAccumulate(kSums, samples, weights, one_, other_);
  }
  HWY_INLINE Sums32 Rounded() const {
    const Sums32 sums = hn::RearrangeToOddPlusEven(one_, other_);
    return hn::ShiftRight<Kernel::kBits>(hn::Add(sums, hn::Set(kSums, Kernel::kOne / 2)));
  }

 private:
  Sums32 one_;
  Sums32 other_;
};

HWY_INLINE Words16 Widened(Bytes8 lowOrHighHalves) {
  return hn::BitCast(kWords, lowOrHighHalves);
}

HWY_INLINE Words16 PairOf(const std::int16_t* weights) {
  std::int32_t pair = 0;
  std::memcpy(&pair, weights, sizeof(pair));
  return hn::BitCast(kWords, hn::Set(kSums, pair));
}

// In order: where ReorderDemote2To() puts the two halves is up to the processor.
HWY_INLINE Words16 Joined(Sums32 low, Sums32 high) {
  constexpr hn::Rebind<std::int16_t, decltype(kSums)> half;
  return hn::Combine(kWords, hn::DemoteTo(half, high), hn::DemoteTo(half, low));
}

// Sums of a vector of samples: four at a time of each block.
class Columns {
 public:
  HWY_INLINE Columns() {}  // NOLINT(modernize-use-equals-default): GCC compiles defaults for the wrong processor
  HWY_INLINE void Add(const std::uint8_t* even, const std::uint8_t* odd, Words16 weights) {
    const Bytes8 zero = hn::Zero(kBytes);
    const Bytes8 one = hn::LoadU(kBytes, even);
    const Bytes8 other = hn::LoadU(kBytes, odd);
    const Bytes8 low = hn::InterleaveLower(kBytes, one, other);
    const Bytes8 high = hn::InterleaveUpper(kBytes, one, other);
    a_.Add(Widened(hn::InterleaveLower(kBytes, low, zero)), weights);
    b_.Add(Widened(hn::InterleaveUpper(kBytes, low, zero)), weights);
    c_.Add(Widened(hn::InterleaveLower(kBytes, high, zero)), weights);
    d_.Add(Widened(hn::InterleaveUpper(kBytes, high, zero)), weights);
  }

  // Clamped to bytes, in order.
  HWY_INLINE void Store(std::uint8_t* result) const {
    constexpr hn::Half<decltype(kBytes)> half;
    if constexpr (kBlocks == 1) {
      const Words16 low = Joined(a_.Rounded(), b_.Rounded());
      const Words16 high = Joined(c_.Rounded(), d_.Rounded());
      hn::StoreU(hn::DemoteTo(half, low), half, result);
      hn::StoreU(hn::DemoteTo(half, high), half, result + kBlock / 2);
    } else {
      const Words16 low = hn::ReorderDemote2To(kWords, a_.Rounded(), b_.Rounded());
      const Words16 high = hn::ReorderDemote2To(kWords, c_.Rounded(), d_.Rounded());
      hn::StoreU(hn::DemoteTo(half, hn::ConcatLowerLower(kWords, high, low)), half, result);
      hn::StoreU(hn::DemoteTo(half, hn::ConcatUpperUpper(kWords, high, low)), half, result + kBlock);
    }
  }

 private:
  Sum a_;
  Sum b_;
  Sum c_;
  Sum d_;
};

// One row of the intermediate picture: of `rows`, the samples from `left` to `right`, rounded up to whole vectors.
void AddRows(const std::vector<const std::uint8_t*>& rows, const std::int16_t* weights, std::size_t left,
             std::size_t right, std::uint8_t* result) {
  for (std::size_t x = left; x < right; x += hn::MaxLanes(kBytes)) {
    Columns columns;
    for (std::size_t i = 0; i < rows.size(); i += 2) {
      columns.Add(rows[i] + x, rows[i + 1] + x, PairOf(weights + i));
    }
    columns.Store(result + x);
  }
}

// Rows that are scaled together, so that weights are read once for all of them.
constexpr std::size_t kTogether = 4;
using Sources = std::array<const std::uint8_t*, kTogether>;
using Results = std::array<std::uint8_t*, kTogether>;

constexpr std::size_t kResults = kBlocks * kResultsPerBlock;  // of a vector

// A kernel prepared for vectors of several results. The results take their samples from windows of 16 bytes, one for
// the vector or one for each of its blocks, which move on by two samples with each pair of taps; shuffling brings the
// samples of each result together.
struct Gathering {
  bool isPossible = false;  // the results' samples lie close enough to each other
  std::size_t windows = 0;  // of a vector
  std::size_t pairs = 0;
  std::vector<int> bases;              // of the first windows
  std::vector<std::uint8_t> shuffles;  // four for each result
  std::vector<std::int16_t> weights;   // for each vector: for each pair of taps: for each result: two
};

constexpr std::uint8_t kNothing = 0x80;

// Behind the last result, that one is repeated.
std::size_t Existing(const Kernel& kernel, std::size_t result) {
  return std::min(result, kernel.starts.size() - 1);
}

// Adds a window for `count` results from `first` on; false if it is too small for them.
bool AddWindow(const Kernel& kernel, std::size_t first, std::size_t count, Gathering* gathering) {
  int base = kernel.starts[Existing(kernel, first)];
  for (std::size_t i = 1; i < count; ++i) base = std::min(base, kernel.starts[Existing(kernel, first + i)]);
  gathering->bases.push_back(base);
  const std::size_t before = gathering->shuffles.size();
  gathering->shuffles.resize(before + 4 * count, kNothing);
  for (std::size_t i = 0; i < count; ++i) {
    const int place = kernel.starts[Existing(kernel, first + i)] - base;
    if (place + 1 >= static_cast<int>(kBlock)) return false;
    gathering->shuffles[before + 4 * i] = static_cast<std::uint8_t>(place);
    gathering->shuffles[before + 4 * i + 2] = static_cast<std::uint8_t>(place + 1);
  }
  return true;
}

void AddWeights(const Kernel& kernel, Gathering* gathering) {
  const std::size_t vectors = (kernel.starts.size() + kResults - 1) / kResults;
  gathering->weights.resize(vectors * gathering->pairs * kResults * 2);
  std::int16_t* to = gathering->weights.data();
  for (std::size_t vector = 0; vector < vectors; ++vector) {
    for (std::size_t pair = 0; pair < gathering->pairs; ++pair) {
      for (std::size_t i = 0; i < kResults; ++i, to += 2) {
        const std::size_t result = Existing(kernel, vector * kResults + i);
        std::memcpy(to, kernel.Weights(static_cast<int>(result)) + 2 * pair, 2 * sizeof(*to));
      }
    }
  }
}

Gathering Prepare(const Kernel& kernel, std::size_t windows) {
  Gathering gathering;
  gathering.windows = windows;
  gathering.pairs = static_cast<std::size_t>(kernel.taps) / 2;
  const std::size_t count = kResults / windows;
  for (std::size_t i = 0; i < kernel.starts.size(); i += kResults) {
    for (std::size_t window = 0; window < windows; ++window) {
      if (!AddWindow(kernel, i + window * count, count, &gathering)) return gathering;
    }
  }
  AddWeights(kernel, &gathering);
  gathering.isPossible = true;
  return gathering;
}

template <std::size_t kWindows>
HWY_INLINE Bytes8 Load(const std::uint8_t* row, const int* bases) {
  if constexpr (kWindows == 1) {
    return hn::LoadDup128(kBytes, row + bases[0]);
  } else {
    return hn::ConcatUpperLower(kBytes, hn::LoadDup128(kBytes, row + bases[1]), hn::LoadDup128(kBytes, row + bases[0]));
  }
}

HWY_INLINE void Store(const Sum& sum, std::uint8_t* result) {
  constexpr hn::Rebind<std::uint8_t, decltype(kSums)> quarter;
  hn::StoreU(hn::DemoteTo(quarter, sum.Rounded()), quarter, result);
}

// Writes whole vectors: up to seven samples behind the last one.
template <std::size_t kWindows>
void GatherRows(const Sources& rows, const Gathering& gathering, const Results& results) {
  const std::int16_t* weights = gathering.weights.data();
  const int* bases = gathering.bases.data();
  const std::size_t vectors = gathering.bases.size() / kWindows;
  for (std::size_t vector = 0; vector < vectors; ++vector, bases += kWindows) {
    const Bytes8 shuffle = hn::LoadU(kBytes, gathering.shuffles.data() + vector * kResults * 4);
    Sum a;
    Sum b;
    Sum c;
    Sum d;
    for (std::size_t place = 0; place < 2 * gathering.pairs; place += 2, weights += 2 * kResults) {
      const Words16 pairs = hn::LoadU(kWords, weights);
      a.Add(Widened(hn::TableLookupBytesOr0(Load<kWindows>(rows[0] + place, bases), shuffle)), pairs);
      b.Add(Widened(hn::TableLookupBytesOr0(Load<kWindows>(rows[1] + place, bases), shuffle)), pairs);
      c.Add(Widened(hn::TableLookupBytesOr0(Load<kWindows>(rows[2] + place, bases), shuffle)), pairs);
      d.Add(Widened(hn::TableLookupBytesOr0(Load<kWindows>(rows[3] + place, bases), shuffle)), pairs);
    }
    Store(a, results[0] + vector * kResults);
    Store(b, results[1] + vector * kResults);
    Store(c, results[2] + vector * kResults);
    Store(d, results[3] + vector * kResults);
  }
}

// For strong reductions, whose results lie far apart: one after the other, many taps at once.
struct LongKernel {
  std::size_t taps = 0;  // a multiple of a vector's
  std::vector<std::int16_t> weights;
};

LongKernel Lengthen(const Kernel& kernel) {
  constexpr std::size_t lanes = hn::MaxLanes(kWords);
  LongKernel result;
  result.taps = (static_cast<std::size_t>(kernel.taps) + lanes - 1) / lanes * lanes;
  result.weights.resize(kernel.starts.size() * result.taps);
  for (int i = 0; i < kernel.Results(); ++i) {
    std::copy_n(kernel.Weights(i), kernel.taps, result.weights.data() + static_cast<std::size_t>(i) * result.taps);
  }
  return result;
}

void SumRow(const std::uint8_t* row, const std::vector<int>& starts, const LongKernel& kernel, std::uint8_t* result) {
  constexpr hn::Half<decltype(kBytes)> half;
  for (std::size_t i = 0; i < starts.size(); ++i) {
    const std::uint8_t* samples = row + starts[i];
    const std::int16_t* weights = kernel.weights.data() + i * kernel.taps;
    Sums32 one = hn::Zero(kSums);
    Sums32 other = hn::Zero(kSums);
    for (std::size_t tap = 0; tap < kernel.taps; tap += hn::MaxLanes(kWords)) {
      one = hn::ReorderWidenMulAccumulate(kSums, hn::PromoteTo(kWords, hn::LoadU(half, samples + tap)),
                                          hn::LoadU(kWords, weights + tap), one, other);
    }
    const int sum = hn::GetLane(hn::SumOfLanes(kSums, hn::Add(one, other)));
    result[i] = static_cast<std::uint8_t>(std::clamp((sum + Kernel::kOne / 2) >> Kernel::kBits, 0, 255));
  }
}

// The horizontal half.
class Across {
 public:
  explicit Across(const Kernel& kernel) : kernel_(kernel) {
    if (kernel.isCopy) return;
    gathering_ = Prepare(kernel, 1);
    if (!gathering_.isPossible && kBlocks > 1) gathering_ = Prepare(kernel, kBlocks);
    if (!gathering_.isPossible) long_ = Lengthen(kernel);
  }

  void Apply(const Sources& rows, const Results& results) const {
    if (gathering_.isPossible && gathering_.windows == 1) {
      GatherRows<1>(rows, gathering_, results);
    } else if (gathering_.isPossible) {
      GatherRows<kBlocks>(rows, gathering_, results);
    } else {
      for (std::size_t i = 0; i < kTogether; ++i) ApplySingly(rows[i], results[i]);
    }
  }

  // The samples of a source row that are used, from a whole vector on.
  std::size_t Left() const {
    const auto first = static_cast<std::size_t>(*std::min_element(kernel_.starts.begin(), kernel_.starts.end()));
    return first / hn::MaxLanes(kBytes) * hn::MaxLanes(kBytes);
  }
  std::size_t Right(std::size_t width) const {
    const int last = *std::max_element(kernel_.starts.begin(), kernel_.starts.end()) + kernel_.taps;
    return std::min(width, static_cast<std::size_t>(last));
  }

 private:
  void ApplySingly(const std::uint8_t* row, std::uint8_t* result) const {
    if (kernel_.isCopy) {
      std::copy_n(row + kernel_.starts[0], kernel_.starts.size(), result);
    } else {
      SumRow(row, kernel_.starts, long_, result);
    }
  }

  const Kernel& kernel_;
  Gathering gathering_;
  LongKernel long_;
};

// The vertical half: the rows of a picture that only has its final height.
class Down {
 public:
  Down(const Plane& source, const Kernel& kernel, const Across& across)
      : source_(source),
        kernel_(kernel),
        left_(across.Left()),
        right_(across.Right(static_cast<std::size_t>(source.Width()))),
        rows_(static_cast<std::size_t>(kernel.taps)),
        made_(Size{kernel.isCopy ? 1 : source.Width(), static_cast<int>(kTogether)}) {}

  // Stays valid until another row is made in the same `place`.
  const std::uint8_t* Row(int y, std::size_t place) {
    const int start = kernel_.starts[static_cast<std::size_t>(y)];
    if (kernel_.isCopy) return source_.Row(start);
    for (int i = 0; i < kernel_.taps; ++i) {
      rows_[static_cast<std::size_t>(i)] = source_.Row(std::min(start + i, source_.Height() - 1));
    }
    std::uint8_t* made = made_.Row(static_cast<int>(place));
    AddRows(rows_, kernel_.Weights(y), left_, right_, made);
    return made;
  }

 private:
  const Plane& source_;
  const Kernel& kernel_;
  std::size_t left_;
  std::size_t right_;
  std::vector<const std::uint8_t*> rows_;
  Plane made_;
};

// A few rows at a time: the whole intermediate picture never exists. Behind the last row, that one is repeated.
void ResampleInto(const Plane& source, const Kernel& across, const Kernel& down, Plane* result) {
  const Across horizontal(across);
  Down vertical(source, down, horizontal);
  for (int y = 0; y < result->Height(); y += static_cast<int>(kTogether)) {
    Sources rows = {};
    Results results = {};
    for (std::size_t i = 0; i < kTogether; ++i) {
      const bool isBehind = y + static_cast<int>(i) >= result->Height();
      rows[i] = isBehind ? rows[i - 1] : vertical.Row(y + static_cast<int>(i), i);
      results[i] = isBehind ? results[i - 1] : result->Row(y + static_cast<int>(i));
    }
    horizontal.Apply(rows, results);
  }
}

#endif

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tavithumb::maker {
namespace {

HWY_EXPORT(ResampleInto);

#if HWY_ARCH_ARM_V7
// libhwy 1.0 of Debian 12 overlooks NEON, which not every 32-bit ARM processor has.
bool TellOfNeon() {
  constexpr unsigned long needed = HWCAP_ARM_NEON | HWCAP_ARM_VFPv4;
  if ((getauxval(AT_HWCAP) & needed) != needed) return false;
  hwy::SetSupportedTargetsForTest(hwy::SupportedTargets() | HWY_NEON);
  return true;
}
[[maybe_unused]] const bool hasNeon = TellOfNeon();
#endif

}  // namespace

Plane ResampleBy(const Plane& source, const Kernel& across, const Kernel& down) {
  Plane result({across.Results(), down.Results()});
  HWY_DYNAMIC_DISPATCH(ResampleInto)(source, across, down, &result);
  return result;
}

Plane Resample(const Plane& source, const Scaling& scaling) {
  const Region& from = scaling.from;
  return ResampleBy(source, MakeKernel(from.left, from.right, scaling.width, scaling.size.width, source.Width()),
                    MakeKernel(from.top, from.bottom, scaling.height, scaling.size.height, source.Height()));
}

}  // namespace tavithumb::maker
#endif
