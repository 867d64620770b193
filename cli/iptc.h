// IPTC records travel bare in TIFF files and inside a block of named resources in JPEG files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tessaline::cli {

// The bare records out of a JPEG application segment's data (with its "Photoshop 3.0" mark); bytes without
// that mark are taken for bare records already. Empty when there are none.
std::vector<uint8_t> BareIptcRecords(const uint8_t* bytes, size_t size);

// The data of a JPEG application segment that holds the records.
std::vector<uint8_t> IptcSegmentData(const std::vector<uint8_t>& records);

}  // namespace tessaline::cli
