// How far a long calculation is, and whether it is still wanted.
#pragma once

namespace tessaline {

// One calculation's reports. `report` (null: nobody is told) is called on the thread that began the
// calculation, now and then, with the part of it that is done, 0 to 1, never falling; it returns true when
// the calculation is to stop. What stopping leaves behind, each function says for itself.
struct Progress {
  bool (*report)(void* user, double part) = nullptr;
  void* user = nullptr;

  // The stretch from `begin` to `end` of it, for a step of the calculation.
  double begin = 0.0;
  double end = 1.0;
  bool canStop = true;  // false: told, but not asked

  bool Advance(double done, double total) const {
    return report != nullptr && report(user, begin + (end - begin) * (done / total)) && canStop;
  }
  Progress Part(double first, double last) const {
    return {report, user, begin + (end - begin) * first, begin + (end - begin) * last, canStop};
  }
  Progress Unstoppable() const { return {report, user, begin, end, false}; }
};

}  // namespace tessaline
