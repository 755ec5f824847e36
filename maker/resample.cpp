// SPDX-License-Identifier: GPL-3.0-or-later
#include "maker/resample.h"

#include <algorithm>
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
  HWY_INLINE Sum() : one_(hn::Set(kSums, Kernel::kOne / 2)), other_(hn::Zero(kSums)) {}
  HWY_INLINE void Add(Words16 samples, Words16 weights) {
    one_ = hn::ReorderWidenMulAccumulate(kSums, samples, weights, one_, other_);
  }
  HWY_INLINE Sums32 Rounded() const { return hn::ShiftRight<Kernel::kBits>(hn::RearrangeToOddPlusEven(one_, other_)); }

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

// The sums of four consecutive samples per block each, clamped to bytes and back in order.
HWY_INLINE Bytes8 Clamped(const Sum& a, const Sum& b, const Sum& c, const Sum& d) {
  const Words16 low = hn::ReorderDemote2To(kWords, a.Rounded(), b.Rounded());
  const Words16 high = hn::ReorderDemote2To(kWords, c.Rounded(), d.Rounded());
  const hn::Half<decltype(kBytes)> half;
  if constexpr (kBlocks == 1) {
    return hn::Combine(kBytes, hn::DemoteTo(half, high), hn::DemoteTo(half, low));
  } else {
    return hn::Combine(kBytes, hn::DemoteTo(half, hn::ConcatUpperUpper(kWords, high, low)),
                       hn::DemoteTo(half, hn::ConcatLowerLower(kWords, high, low)));
  }
}

// One row of the intermediate picture: of `rows`, the samples from `left` to `right`, rounded up to whole vectors.
void AddRows(const std::vector<const std::uint8_t*>& rows, const std::int16_t* weights, std::size_t left,
             std::size_t right, std::uint8_t* result) {
  const Bytes8 zero = hn::Zero(kBytes);
  for (std::size_t x = left; x < right; x += hn::MaxLanes(kBytes)) {
    Sum a;
    Sum b;
    Sum c;
    Sum d;
    for (std::size_t i = 0; i < rows.size(); i += 2) {
      const Words16 pair = PairOf(weights + i);
      const Bytes8 even = hn::LoadU(kBytes, rows[i] + x);
      const Bytes8 odd = hn::LoadU(kBytes, rows[i + 1] + x);
      const Bytes8 low = hn::InterleaveLower(kBytes, even, odd);
      const Bytes8 high = hn::InterleaveUpper(kBytes, even, odd);
      a.Add(Widened(hn::InterleaveLower(kBytes, low, zero)), pair);
      b.Add(Widened(hn::InterleaveUpper(kBytes, low, zero)), pair);
      c.Add(Widened(hn::InterleaveLower(kBytes, high, zero)), pair);
      d.Add(Widened(hn::InterleaveUpper(kBytes, high, zero)), pair);
    }
    hn::StoreU(Clamped(a, b, c, d), kBytes, result + x);
  }
}

// A kernel prepared for vectors of several results. Each block of four results takes its samples from one window of 16
// bytes, which moves on by two samples with each pair of taps; shuffling brings the pairs of the results together.
struct Gathering {
  bool isPossible = false;  // the four results' samples lie close enough to each other
  std::size_t pairs = 0;
  std::vector<int> bases;              // of each block's first window
  std::vector<std::uint8_t> shuffles;  // `kBlock` for each block
  std::vector<std::int16_t> weights;   // for each vector: for each pair of taps: for each result: two
};

constexpr std::uint8_t kNothing = 0x80;

// Adds a block, which begins at result `first`; behind the last result, that one is repeated.
void AddBlock(const Kernel& kernel, int first, Gathering* gathering) {
  const auto start = [&](int i) {
    return kernel.starts[static_cast<std::size_t>(std::min(first + i, kernel.Results() - 1))];
  };
  const int base = std::min({start(0), start(1), start(2), start(3)});
  gathering->bases.push_back(base);
  for (int i = 0; i < static_cast<int>(kResultsPerBlock); ++i) {
    const int place = start(i) - base;
    if (place + 1 >= static_cast<int>(kBlock)) gathering->isPossible = false;
    for (const int shuffle : {place, int{kNothing}, place + 1, int{kNothing}}) {
      gathering->shuffles.push_back(static_cast<std::uint8_t>(shuffle));
    }
  }
}

void AddWeights(const Kernel& kernel, int first, Gathering* gathering) {
  for (std::size_t pair = 0; pair < gathering->pairs; ++pair) {
    for (std::size_t i = 0; i < kBlocks * kResultsPerBlock; ++i) {
      const std::int16_t* weights = kernel.Weights(std::min(first + static_cast<int>(i), kernel.Results() - 1));
      gathering->weights.insert(gathering->weights.end(), weights + 2 * pair, weights + 2 * pair + 2);
    }
  }
}

Gathering Prepare(const Kernel& kernel) {
  Gathering gathering;
  gathering.isPossible = true;
  gathering.pairs = static_cast<std::size_t>(kernel.taps) / 2;
  for (int i = 0; i < kernel.Results() && gathering.isPossible; i += static_cast<int>(kBlocks * kResultsPerBlock)) {
    for (std::size_t block = 0; block < kBlocks; ++block) {
      AddBlock(kernel, i + static_cast<int>(block * kResultsPerBlock), &gathering);
    }
    AddWeights(kernel, i, &gathering);
  }
  return gathering;
}

// The windows of a vector's blocks.
HWY_INLINE Bytes8 Windows(const std::uint8_t* row, const int* bases) {
  if constexpr (kBlocks == 1) {
    return hn::LoadU(kBytes, row + bases[0]);
  } else {
    return hn::ConcatUpperLower(kBytes, hn::LoadDup128(kBytes, row + bases[1]), hn::LoadDup128(kBytes, row + bases[0]));
  }
}

// Writes whole vectors: up to seven samples behind the last one.
void GatherRow(const std::uint8_t* row, const Gathering& gathering, std::uint8_t* result) {
  constexpr hn::Rebind<std::uint8_t, decltype(kSums)> quarter;
  const std::int16_t* weights = gathering.weights.data();
  for (std::size_t block = 0; block < gathering.bases.size(); block += kBlocks) {
    const Bytes8 shuffle = hn::LoadU(kBytes, gathering.shuffles.data() + block * kBlock);
    Sum sum;
    for (std::size_t pair = 0; pair < gathering.pairs; ++pair, weights += hn::MaxLanes(kWords)) {
      const Bytes8 windows = Windows(row + 2 * pair, gathering.bases.data() + block);
      sum.Add(Widened(hn::TableLookupBytesOr0(windows, shuffle)), hn::LoadU(kWords, weights));
    }
    hn::StoreU(hn::DemoteTo(quarter, sum.Rounded()), quarter, result + block * kResultsPerBlock);
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
    gathering_ = Prepare(kernel);
    if (!gathering_.isPossible) long_ = Lengthen(kernel);
  }

  void Apply(const std::uint8_t* row, std::uint8_t* result) const {
    if (kernel_.isCopy) {
      std::copy_n(row + kernel_.starts[0], kernel_.starts.size(), result);
    } else if (gathering_.isPossible) {
      GatherRow(row, gathering_, result);
    } else {
      SumRow(row, kernel_.starts, long_, result);
    }
  }

  // The samples of a source row that are used, at whole vectors.
  std::size_t Left() const {
    const auto first = static_cast<std::size_t>(*std::min_element(kernel_.starts.begin(), kernel_.starts.end()));
    return first / hn::MaxLanes(kBytes) * hn::MaxLanes(kBytes);
  }
  std::size_t Right(std::size_t width) const {
    const int last = *std::max_element(kernel_.starts.begin(), kernel_.starts.end()) + kernel_.taps;
    return std::min(width, static_cast<std::size_t>(last));
  }

 private:
  const Kernel& kernel_;
  Gathering gathering_;
  LongKernel long_;
};

// Row by row: the intermediate picture never has more than one.
void ResampleInto(const Plane& source, const Kernel& across, const Kernel& down, Plane* result) {
  const Across horizontal(across);
  const std::size_t left = horizontal.Left();
  const std::size_t right = horizontal.Right(static_cast<std::size_t>(source.Width()));
  Plane between(down.isCopy ? Size{1, 1} : Size{source.Width(), 1});
  std::vector<const std::uint8_t*> rows(static_cast<std::size_t>(down.taps));
  for (int y = 0; y < result->Height(); ++y) {
    const int start = down.starts[static_cast<std::size_t>(y)];
    if (down.isCopy) {
      horizontal.Apply(source.Row(start), result->Row(y));
      continue;
    }
    for (int i = 0; i < down.taps; ++i) {
      rows[static_cast<std::size_t>(i)] = source.Row(std::min(start + i, source.Height() - 1));
    }
    AddRows(rows, down.Weights(y), left, right, between.Row(0));
    horizontal.Apply(between.Row(0), result->Row(y));
  }
}

#endif

}  // namespace tavithumb::maker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace tavithumb::maker {
namespace {

HWY_EXPORT(ResampleInto);

}  // namespace

Plane Resample(const Plane& source, const Scaling& scaling) {
  const Region& from = scaling.from;
  const Size size = scaling.size;
  Plane result(size);
  HWY_DYNAMIC_DISPATCH(ResampleInto)
  (source, MakeKernel(from.left, from.right, scaling.width, size.width, source.Width()),
   MakeKernel(from.top, from.bottom, scaling.height, size.height, source.Height()), &result);
  return result;
}

}  // namespace tavithumb::maker
#endif
