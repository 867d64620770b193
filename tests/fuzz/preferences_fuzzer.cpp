// Preferences files of any bytes and length: read, used and written as every run does.
#include "glue/parameters/filter_parameters.h"
#include "glue/parameters/parameter_list.h"
#include "glue/parameters/settings_record.h"
#include "image/result_codes.h"
#include "tests/fuzz/bytes.h"

int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t count) {
  using namespace tessaline;
  fuzz::Bytes input(bytes, count);
  // Short inputs repeat over the whole record, with the three values of the filter in their places.
  std::string file(input.Flag() ? input.Take<uint16_t>() : kPreferencesFileBytes, '\0');
  float values[3];
  for (float& value : values) value = input.Take<float>();
  const std::string pattern = input.Rest();
  for (size_t i = 0; i < file.size() && !pattern.empty(); ++i) file[i] = pattern[i % pattern.size()];
  constexpr size_t kValues = 1176;
  if (file.size() >= kValues + sizeof values) std::memcpy(file.data() + kValues, values, sizeof values);
  fuzz::WriteFile("Plug-In Preferences.xyz", file);

  SetPreferencesFolder(".");
  ClearSettings();
  const bool isRead = ReadPreferences() == kSuccess;
  DEMAND(isRead == (file.size() >= kSettingsBytes));
  ApplySettingsDefaults();
  ParameterList* const list = MakeParameterList();
  DEMAND(list != nullptr);
  ProgramHandle* const handle = MakeParameters(*list);
  DEMAND(handle != nullptr);
  const FilterParameters& parameters = *ParametersOf(handle);
  DEMAND(parameters.protectionRadius != 0 && parameters.notchRadius != 0);
  StoreParameters(parameters, list);
  DisposeHandle(handle);
  FreeParameterList(list);

  // What is written comes back, texts cut at their first NUL.
  const SettingsRecord written = imageInfo.settings;
  DEMAND(WritePreferences() == kSuccess);
  ClearSettings();
  DEMAND(ReadPreferences() == kSuccess);
  DEMAND(std::memcmp(&written, &imageInfo.settings, sizeof written) == 0);
  for (const char* const text : textRecords) DEMAND(text[kTextRecordBytes - 1] == '\0');
  FreeTextRecords();
  ClearSettings();
  return 0;
}
