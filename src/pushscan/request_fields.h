// The fields of a version 1 request that are words or numbers, in the order of the document.  One
// table serves the builder, the parser and the check of values.
#pragma once

#include <cstdint>
#include <string_view>

#include "pushscan/vocabulary.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn {

struct RequestField {
  std::string_view element;  // ends in a NUL
  const WordTable* words;    // null for a number of 0 to MEASURE_LIMIT
  std::int32_t PushScanRequestRecord::*member;
};

constexpr RequestField REQUEST_FIELDS[] = {
    {"ImageFormatIn", &IMAGE_FORMATS, &PushScanRequestRecord::imageFormat},
    {"ColorTypeIn", &COLOR_TYPES, &PushScanRequestRecord::colorType},
    {"LoadPaperIn", &LOAD_PAPERS, &PushScanRequestRecord::loadPaper},
    {"PaperTypeIn", &PAPER_TYPES, &PushScanRequestRecord::paperType},
    {"PaperWidthIn", nullptr, &PushScanRequestRecord::paperWidth},
    {"PaperHeightIn", nullptr, &PushScanRequestRecord::paperHeight},
    {"ScanXIn", nullptr, &PushScanRequestRecord::scanX},
    {"ScanYIn", nullptr, &PushScanRequestRecord::scanY},
};

// True when the field's value is one of its words or within its limits.
bool IsValidField(const RequestField& field, const PushScanRequestRecord& record);

}  // namespace zvqrn
