// One call of one export: its arguments are made, what they are is remembered, and after the call
// everything is compared with what the table promises.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "reliability/stage.h"

namespace quillon::test {

// Whether the objects that the call may change are the case's own, or live as long as the stage.
enum class Lifetime { kOneCall, kLong };

class Case {
 public:
  // `choice` holds one number a parameter (Stage::Choices).
  Case(Stage& stage, const Export& row, const std::vector<int>& choice,
       Lifetime lifetime = Lifetime::kOneCall);

  void Call() {
    CallOnly();
    Keep();
  }
  // The call alone; what it made must be kept then.
  void CallOnly() { outcome_ = row_.call(values_.data()); }
  void Keep();
  // What the last call broke, or nothing.
  std::string Problem() const;
  // The same after a call that ran out of memory, of which `reference` is the digest with memory:
  // it got through all the same, or it failed and left no image half done but the result.
  std::string ProblemWithoutMemory(uint64_t reference) const;
  bool Refused() const { return refused_.has_value(); }
  // The result is a source, and the call one of those that then leave an image behind by contract.
  bool LeavesImage() const;
  const Outcome& outcome() const { return outcome_; }
  // What was returned, and all that the call may change. Handles count as there or not there.
  uint64_t Digest() const;
  std::string Describe() const;

 private:
  // Bytes that a call leaves alone: always, or when it refuses.
  struct Watched {
    size_t parameter;
    const void* data;
    std::vector<uint8_t> before;
    bool isRead;
  };
  struct WatchedImage {
    size_t parameter;
    const GreyImage* image;  // or a colour image, whose fields are the same
    std::vector<uint8_t> object, store;
    bool isRead;
  };
  struct Array {
    size_t parameter;
    std::unique_ptr<std::vector<uint8_t>> bytes;  // with guards on either side
  };

  void Make(size_t i, int choice);
  void MakeResult(size_t i, int choice);
  template <class Pixel>
  void MakeResultOf(size_t i, int choice);
  template <class Pixel>
  CImage<Pixel>* Own(const CImage<Pixel>* copied);
  void MakeArray(size_t i, size_t size);
  void Watch(size_t i, const void* data, size_t size, bool isRead);
  void WatchImages();
  bool IsInPlace() const;  // the result is a source
  std::string ProblemOfArrays(bool mayWrite) const;
  std::string ProblemOfImages(bool mayWrite) const;

  Stage& stage_;
  const Export& row_;
  std::vector<int> choice_;
  Lifetime lifetime_;
  std::vector<Value> values_;
  std::vector<std::shared_ptr<void>> owned_;
  std::vector<Watched> watched_;
  std::vector<WatchedImage> images_;
  std::vector<Array> arrays_;
  std::vector<size_t> results_;  // parameters that are re-created
  std::optional<double> refused_;
  std::optional<Extent> extent_;
  Outcome outcome_;
};

}  // namespace quillon::test
