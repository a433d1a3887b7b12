#include "pushscan/request_fields.h"

#include "pushscan/documents.h"

namespace zvqrn {

bool IsValidField(const RequestField& field, const PushScanRequestRecord& record) {
  const std::int32_t value = record.*field.member;
  return field.words != nullptr ? WordOf(*field.words, value) != nullptr
                                : value >= 0 && value <= MEASURE_LIMIT;
}

}  // namespace zvqrn
