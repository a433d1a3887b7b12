// The records that a host gets with a request, as prose and as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "common/json_lines.h"
#include "zvqrn/zvqrn.h"

namespace zvqrn::host {

// Gives the name of the driver that serves the request's scanner, whichever kind it is; empty when
// the kind or the size is none that a host is given.
std::string DriverName(std::int32_t documentKind, const void* requestData, std::int32_t size);

// Adds the request's fields to an object.
void AddRequestFields(const EventHeader& header, std::int32_t documentKind, const void* requestData,
                      std::int32_t size, tools::JsonObject* object);

// Gives the request in a few lines without a line feed at the end, its texts escaped.
std::string DescribeRequest(const EventHeader& header, std::int32_t documentKind,
                            const void* requestData, std::int32_t size);

// "single", "start" or "end".
std::string ExchangeWord(const EventHeader& header);

}  // namespace zvqrn::host
