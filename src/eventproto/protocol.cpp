#include "eventproto/protocol.h"

#include "base/text.h"

namespace zvqrn {

std::int32_t CheckVersion(const char* version, char (&status)[STATUS_SIZE]) {
  if (EqualsIgnoringCase(version, VERSION_1) == 0 || EqualsIgnoringCase(version, VERSION_2) == 0) {
    CopyBounded(status, STATUS_ACCEPTED, STATUS_SIZE);
    return 1;
  }
  if (SameMajorVersion(VERSION_1, version) == 1) {
    CopyBounded(status, STATUS_ACCEPTED_MINOR, STATUS_SIZE);
    return 1;
  }
  CopyBounded(status, STATUS_BAD_VERSION, STATUS_SIZE);
  return -1;
}

void SelectAnswerVersion(char (&version)[VERSION_SIZE]) {
  const bool isVersion2 =
      SameMajorVersion(VERSION_1, version) == 0 && SameMajorVersion(VERSION_2, version) == 1;
  CopyBounded(version, isVersion2 ? VERSION_2 : VERSION_1, VERSION_SIZE);
}

std::int32_t SameMajorVersion(const char* reference, const char* candidate) {
  while (*reference != '\0' && *reference != '.') {
    if (ToCapital(*reference) != ToCapital(*candidate)) {
      return 0;
    }
    reference++;
    candidate++;
  }
  return *candidate == '.' ? 1 : 0;
}

}  // namespace zvqrn
