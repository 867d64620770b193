#include <sched.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "platform/parallel.h"

namespace tessaline {

namespace {

// Processors' worth of time that the process's control group may use; 0 where nothing is said.
double ProcessorQuota() {
  std::ifstream second("/sys/fs/cgroup/cpu.max");
  std::string quota;
  double period = 0.0;
  if (second >> quota >> period && quota != "max" && period > 0.0)
    return std::strtod(quota.c_str(), nullptr) / period;
  std::ifstream firstQuota("/sys/fs/cgroup/cpu/cpu.cfs_quota_us");
  std::ifstream firstPeriod("/sys/fs/cgroup/cpu/cpu.cfs_period_us");
  double microseconds = 0.0;
  if (firstQuota >> microseconds && firstPeriod >> period && microseconds > 0.0 && period > 0.0) {
    return microseconds / period;
  }
  return 0.0;
}

}  // namespace

int32_t UsableProcessors() {
  int32_t processors = static_cast<int32_t>(std::thread::hardware_concurrency());
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) == 0) processors = CPU_COUNT(&allowed);
  const double quota = ProcessorQuota();
  if (quota > 0.0) processors = std::min(processors, static_cast<int32_t>(std::ceil(quota)));
  return std::max(processors, 1);
}

}  // namespace tessaline
