#include "analyze/recorded/rank_test.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace bootforge::analyze {
namespace {

constexpr std::size_t kMostExact = 50;

/// The values of both sides in one order.
struct Ranking {
  std::vector<std::size_t> doubledRanks;  // twice the rank, since equal values share a mean rank
  std::size_t doubledSum = 0;             // of the first side
  double ties = 0;                        // sum of t^3 - t over groups of t equal values
};

Ranking rank(const std::vector<std::int64_t>& one, const std::vector<std::int64_t>& other) {
  std::vector<std::pair<std::int64_t, bool>> values;  // and whether it is of the first side
  for (const std::int64_t value : one) values.emplace_back(value, true);
  for (const std::int64_t value : other) values.emplace_back(value, false);
  std::sort(values.begin(), values.end());
  Ranking ranking;
  for (std::size_t begin = 0; begin < values.size();) {
    std::size_t end = begin;
    while (end < values.size() && values[end].first == values[begin].first) ++end;
    const std::size_t doubledRank = begin + 1 + end;  // first rank + last rank
    for (std::size_t index = begin; index < end; ++index) {
      ranking.doubledRanks.push_back(doubledRank);
      if (values[index].second) ranking.doubledSum += doubledRank;
    }
    const auto count = static_cast<double>(end - begin);
    ranking.ties += count * count * count - count;
    begin = end;
  }
  return ranking;
}

/// By counting every way to choose the first side's ranks.
double exactP(const Ranking& ranking, std::size_t size) {
  const std::size_t total = ranking.doubledRanks.size() * (ranking.doubledRanks.size() + 1);
  // ways[n][s]: how many choices of n ranks have the doubled sum s.
  std::vector<std::vector<double>> ways(size + 1, std::vector<double>(total + 1));
  ways[0][0] = 1;
  std::size_t reached = 0;
  for (const std::size_t rank : ranking.doubledRanks) {
    reached += rank;
    for (std::size_t count = size; count > 0; --count) {
      for (std::size_t sum = reached; sum >= rank; --sum) {
        ways[count][sum] += ways[count - 1][sum - rank];
      }
    }
  }
  double below = 0;
  double above = 0;
  double all = 0;
  for (std::size_t sum = 0; sum <= total; ++sum) {
    const double count = ways[size][sum];
    all += count;
    if (sum <= ranking.doubledSum) below += count;
    if (sum >= ranking.doubledSum) above += count;
  }
  return std::min(1.0, 2 * std::min(below, above) / all);
}

double approximateP(const Ranking& ranking, std::size_t size) {
  const auto n = static_cast<double>(size);
  const auto all = static_cast<double>(ranking.doubledRanks.size());
  const double m = all - n;
  const double u = static_cast<double>(ranking.doubledSum) / 2 - n * (n + 1) / 2;
  const double variance = n * m / 12 * (all + 1 - ranking.ties / (all * (all - 1)));
  if (variance <= 0) return 1;
  const double distance = std::max(0.0, std::abs(u - n * m / 2) - 0.5);
  return std::erfc(distance / std::sqrt(2 * variance));
}

}  // namespace

double mannWhitneyP(const std::vector<std::int64_t>& one, const std::vector<std::int64_t>& other) {
  const Ranking ranking = rank(one, other);
  return ranking.doubledRanks.size() <= kMostExact ? exactP(ranking, one.size())
                                                   : approximateP(ranking, one.size());
}

}  // namespace bootforge::analyze
