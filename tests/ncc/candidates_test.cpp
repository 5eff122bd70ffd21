#include "ncc/candidates.h"

#include <cmath>

#include "support/images.h"

namespace quillon::test {
namespace {

// The list as a sorted array with linear searches.
class PlainList {
 public:
  explicit PlainList(size_t capacity) : capacity_(capacity) {}

  void Insert(const Candidate& c, double reachX, double reachY) {
    size_t at = 0;
    while (at < list_.size() && list_[at].score >= c.score) ++at;
    list_.insert(list_.begin() + static_cast<ptrdiff_t>(at), c);
    if (list_.size() > capacity_) list_.pop_back();
    const auto isNear = [&](const Candidate& other) {
      return std::abs(other.pose.x - c.pose.x) < reachX &&
             std::abs(other.pose.y - c.pose.y) < reachY;
    };
    for (size_t i = 0; i < at; ++i) {
      if (isNear(list_[i])) return Erase(at);
    }
    for (size_t i = at + 1; i < list_.size(); ++i) {
      if (isNear(list_[i])) return Erase(i);
    }
  }
  double LastScore() const { return list_.size() == capacity_ ? list_.back().score : 0; }
  const std::vector<Candidate>& Entries() const { return list_; }

 private:
  void Erase(size_t i) { list_.erase(list_.begin() + static_cast<ptrdiff_t>(i)); }

  size_t capacity_;
  std::vector<Candidate> list_;
};

void PlainSuppression(std::vector<Place>& places, double distance) {
  for (Place& a : places) {
    const double score = a.score;
    for (Place& b : places) {
      if (&a == &b || std::abs(a.x - b.x) >= distance || std::abs(a.y - b.y) >= distance) continue;
      (score > b.score ? b : a).score = -1;
    }
  }
}

}  // namespace

TEST(NccCandidates, ListIsTheSortedArrayWithLinearSearches) {
  for (uint32_t seed = 1; seed <= 40; ++seed) {
    Random random(seed);
    const int capacity = random.Within(1, 60), width = random.Within(1, 90), height = 50;
    CandidateList list;
    PlainList plain(static_cast<size_t>(capacity));
    ASSERT_TRUE(list.Open(capacity, width, height, 3));
    for (int i = 0; i < 600; ++i) {
      // Few different scores, so that many tie.
      const Pose pose = {random.Within(0, 2 * width) * 0.5, random.Within(0, 2 * height) * 0.5};
      const Candidate c = {i, 0, random.Within(1, 40) / 40.0, pose};
      const double reachX = random.Unit() * 6 + 0.5, reachY = random.Unit() * 6 + 0.5;
      ASSERT_EQ(list.LastScore(), plain.LastScore());
      if (!(c.score > plain.LastScore())) continue;
      list.Insert(c, reachX, reachY);
      plain.Insert(c, reachX, reachY);
      ASSERT_EQ(static_cast<size_t>(list.Count()), plain.Entries().size()) << seed << ", " << i;
    }
    std::vector<Candidate> sorted(static_cast<size_t>(list.Count()));
    list.CopyTo(sorted.data());
    for (size_t i = 0; i < sorted.size(); ++i) {
      ASSERT_EQ(sorted[i].angle, plain.Entries()[i].angle) << seed << ", " << i;
    }
  }
}

TEST(NccCandidates, SuppressionIsTheDoubleLoop) {
  for (uint32_t seed = 1; seed <= 60; ++seed) {
    Random random(seed);
    std::vector<Place> places(static_cast<size_t>(random.Within(0, 80)));
    const int spread = random.Within(1, 400);
    for (Place& p : places) {
      p = {random.Within(-5, spread) * 0.5, random.Within(-5, 40) * 0.5,
           random.Within(-1, 9) / 10.0};
    }
    auto expected = places;
    const double distance = random.Unit() * 12 + 0.1;
    PlainSuppression(expected, distance);
    ASSERT_TRUE(SuppressDuplicates(places.data(), static_cast<int>(places.size()), distance));
    for (size_t i = 0; i < places.size(); ++i) ASSERT_EQ(places[i].score, expected[i].score) << i;
  }
}

TEST(NccCandidates, KneeKeepsUpToTheSharpestBend) {
  const auto prune = [](const std::vector<double>& scores, int wanted) {
    std::vector<Candidate> list;
    for (double score : scores) list.push_back({0, 0, score, {}});
    return PruneAtKnee(list.data(), static_cast<int>(list.size()), wanted);
  };
  EXPECT_EQ(prune({0.9, 0.8}, 1), 2) << "no more than twice the wanted";
  EXPECT_EQ(prune({1, 0.75, 0.5, 0.25, 0}, 1), 5) << "a straight line";
  EXPECT_EQ(prune({1.0, 0.75, 0.5, 0.5, 0.5, 0.5}, 1), 4) << "the first of equal bends";
  EXPECT_EQ(prune({1, 1, 1, 1, 0.25, 0.25, 0.25}, 1), 5);
  EXPECT_EQ(prune({1, 1, 1, 1, 1, 1}, 2), 6) << "no bend, nothing changes";
  EXPECT_EQ(prune({}, 1), 0);
}

}  // namespace quillon::test
