#pragma once

/// Makes one allocation of this thread fail, the library's included: lets
/// `after` of them through, then one throws `std::bad_alloc`, and those behind
/// it succeed again. A program that uses it replaces `operator new` with the
/// one in failing_allocation.cpp.
class FailingAllocation {
 public:
  explicit FailingAllocation(int after);
  ~FailingAllocation();
  FailingAllocation(FailingAllocation const&) = delete;
  FailingAllocation& operator=(FailingAllocation const&) = delete;
  /// Whether it has failed by now.
  bool happened() const;
};
