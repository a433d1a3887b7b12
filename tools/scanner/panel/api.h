// What the page asks of the panel and has it do: the paths below /api/.  No call waits for the
// network.
#pragma once

#include "scanner/panel/http.h"
#include "scanner/panel/load.h"
#include "scanner/panel/searching.h"
#include "scanner/panel/server.h"
#include "scanner/panel/state.h"

namespace zvqrn::scanner {

struct PanelParts {
  PanelState* state = nullptr;
  Searching* searching = nullptr;
  Load* load = nullptr;
  std::string version;  // of this tool
  std::uint32_t bind =
      0;  // the address to connect from, network byte order; 0: the system's choice
};

HttpAnswer AnswerApi(const PanelParts& parts, const HttpRequest& request);

}  // namespace zvqrn::scanner
