#include "resources/resource_bytes.h"

#include <initializer_list>
#include <string_view>
#include <utility>

#include "glue/host/host_records.h"
#include "glue/parameters/parameter_list.h"

namespace tessaline {

namespace {

class Bytes {
 public:
  void Int8(uint32_t value) { bytes_.push_back(static_cast<uint8_t>(value)); }
  void Int16(uint32_t value) {
    Int8(value);
    Int8(value >> 8);
  }
  // Also for four-character codes, which this puts in reverse.
  void Int32(uint32_t value) {
    Int16(value);
    Int16(value >> 16);
  }
  void Text(std::string_view text) { bytes_.insert(bytes_.end(), text.begin(), text.end()); }
  void PascalString(std::string_view text) {
    Int8(static_cast<uint32_t>(text.size()));
    Text(text);
  }
  void CString(std::string_view text) {
    Text(text);
    Int8(0);
  }
  void Append(const std::vector<uint8_t>& other) { bytes_.insert(bytes_.end(), other.begin(), other.end()); }
  void PadToMultipleOf4() { bytes_.resize((bytes_.size() + 3) / 4 * 4); }

  std::vector<uint8_t> Take() { return std::move(bytes_); }
  const std::vector<uint8_t>& Content() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

// --- plug-in property list ---

constexpr uint32_t kVendor = FourCharCode("8BIM");
constexpr uint32_t kKindFilter = FourCharCode("8BFM");

constexpr uint32_t kInterfaceMajor = 4;
constexpr uint32_t kInterfaceMinor = 0;

// The images named to hosts that only know the first ten modes. The deep ones follow from kEnabledWhen. Modes
// that the filter then declines with a message are named too, so that the menu entry is there to say so.
constexpr std::initializer_list<host::ImageModeNumber> kOfferedModes = {
    host::kModeGray, host::kModeRgb,          host::kModeCmyk,    host::kModeHsl,
    host::kModeHsb,  host::kModeMultichannel, host::kModeDuotone, host::kModeLab};

// Read by hosts with their own grammar; blanks are as hosts have always seen them.
constexpr std::string_view kEnabledWhen =
    "in (PSHOP_ImageMode, RGBMode, GrayScaleMode,LabMode, RGB48Mode, Gray16Mode) "
    "||PSHOP_ImageDepth == 16 ||PSHOP_ImageDepth == 32";

// Pixels that a host may offer. The runs themselves refuse more than they take, with a message that says so.
constexpr uint32_t kLargestHeight = 2000000;
constexpr uint32_t kLargestWidth = 2000000;

constexpr uint32_t kUsableOnFilterLayers = 128;

// How transparency is filled in on the way in and taken out on the way back, the same in all seven cases
// (flat image, floating selection, editable and protected transparency, with and without a selection). At
// least one host reads one entry too far, which only equal entries forgive.
constexpr int kFilterCases = 7;
constexpr uint32_t kWhiteMatte = 4;
constexpr uint32_t kWorksWithBlankData = 2;
constexpr uint32_t kFiltersLayerMasks = 4;

// Flag n is the bit n from the top of the first byte on.
std::vector<uint8_t> FlagSet(std::initializer_list<host::ImageModeNumber> flags) {
  std::vector<uint8_t> bytes(4);
  for (const int flag : flags) bytes[flag / 8] |= static_cast<uint8_t>(0x80 >> flag % 8);
  return bytes;
}

class PropertyList {
 public:
  void Add(uint32_t key, Bytes data) {
    data.PadToMultipleOf4();
    properties_.Int32(kVendor);
    properties_.Int32(key);
    properties_.Int32(0);  // id
    properties_.Int32(static_cast<uint32_t>(data.Content().size()));
    properties_.Append(data.Content());
    ++count_;
  }

  std::vector<uint8_t> Take() {
    Bytes list;
    list.Int16(1);
    list.Int32(0);  // version
    list.Int32(count_);
    list.Append(properties_.Content());
    return list.Take();
  }

 private:
  Bytes properties_;
  uint32_t count_ = 0;
};

// --- scripting terminology ---

constexpr uint32_t kNoReply = FourCharCode("null");
constexpr uint32_t kImageReference = FourCharCode("#ImR");  // what the event is applied to
constexpr uint32_t kImageReferenceFlags = 0xB000;
constexpr uint32_t kOptionalParameter = 0x8000;
constexpr std::string_view kNoDescription;

constexpr ScriptingParameter kDialogParameters[] = {
    {"Threshold", kKeyAcceptance, kTypeLong},
    {"Notch Radius", kKeyNotchRadius, kTypeFloat},
    {"Low Frequency Cutoff", kKeyProtectionRadius, kTypeFloat},
};

}  // namespace

// Hosts keep the filters of a menu, and the steps of an action, apart by these.
constinit const FilterIdentity kDialogFilter = {"Tessaline...", "Tessaline", FourCharCode("tsSu"),
                                                kEventFilter,   16000,       kDialogParameters};
constinit const FilterIdentity kAutomaticFilter = {
    "Tessaline Auto", "Tessaline Auto", FourCharCode("tsAS"), FourCharCode("tsAu"), 16001, {}};

std::vector<uint8_t> PluginPropertyList(const FilterIdentity& filter) {
  PropertyList list;
  const auto add = [&list](const char(&key)[5], auto fill) {
    Bytes data;
    fill(data);
    list.Add(FourCharCode(key), std::move(data));
  };

  add("kind", [](Bytes& data) { data.Int32(kKindFilter); });
  add("name", [&](Bytes& data) { data.PascalString(filter.menuName); });
  add("catg", [](Bytes& data) { data.PascalString("Vistrel - 5. Noise Removal"); });
  add("vers", [](Bytes& data) { data.Int32(kInterfaceMajor << 16 | kInterfaceMinor); });
  add("8664", [](Bytes& data) { data.CString("PluginMain"); });
  add("mode", [](Bytes& data) { data.Append(FlagSet(kOfferedModes)); });
  add("hstm", [&](Bytes& data) {
    data.Int32(0);             // version
    data.Int32(filter.event);  // class
    data.Int32(filter.event);
    data.Int16(static_cast<uint32_t>(filter.resourceId));
    data.CString("");  // scope: open to scripting from anywhere
  });
  add("enbl", [](Bytes& data) { data.CString(kEnabledWhen); });
  add("ms32", [](Bytes& data) {
    data.Int32(kLargestHeight);
    data.Int32(kLargestWidth);
  });
  add("flly", [](Bytes& data) { data.Int32(kUsableOnFilterLayers); });
  add("fici", [](Bytes& data) {
    for (int i = 0; i < kFilterCases; ++i) {
      data.Int8(kWhiteMatte);  // in
      data.Int8(kWhiteMatte);  // out
      data.Int8(kWorksWithBlankData | kFiltersLayerMasks);
      data.Int8(0);
    }
  });
  return list.Take();
}

std::vector<uint8_t> ScriptingTerminology(const FilterIdentity& filter) {
  Bytes bytes;
  bytes.Int16(1);
  bytes.Int8(1);   // version, major
  bytes.Int8(0);   // minor
  bytes.Int16(0);  // language: English
  bytes.Int16(0);  // script: Roman

  bytes.Int16(1);  // suites
  bytes.PascalString("Vistrel");
  bytes.PascalString(kNoDescription);
  bytes.Int32(filter.suite);
  bytes.Int16(1);  // level
  bytes.Int16(1);  // version

  bytes.Int16(1);  // events
  bytes.PascalString(filter.eventName);
  bytes.PascalString(kNoDescription);
  bytes.Int32(filter.event);  // class
  bytes.Int32(filter.event);
  bytes.Int32(kNoReply);
  bytes.PascalString(kNoDescription);
  bytes.Int16(0);  // flags of the reply
  bytes.Int32(kImageReference);
  bytes.PascalString(kNoDescription);
  bytes.Int16(kImageReferenceFlags);

  bytes.Int16(static_cast<uint32_t>(filter.parameters.size()));
  for (const ScriptingParameter& parameter : filter.parameters) {
    bytes.PascalString(parameter.name);
    bytes.Int32(parameter.key);
    bytes.Int32(parameter.type);
    bytes.PascalString(kNoDescription);
    bytes.Int16(kOptionalParameter);
  }

  bytes.Int16(0);  // classes
  bytes.Int16(0);  // comparison operators
  bytes.Int16(0);  // enumerations
  return bytes.Take();
}

}  // namespace tessaline
