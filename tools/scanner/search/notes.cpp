#include "common/adapters.h"
#include "scanner/search/search.h"

namespace zvqrn::scanner {

std::vector<std::string> NotesOn(const FoundPc& pc) {
  std::vector<std::string> notes;
  const std::string sender = tools::AddressText(pc.sender);
  // A PC that answers itself does so from whichever of its addresses was asked.
  if (sender != pc.description.address && !IsOwnAddress(pc.sender)) {
    notes.push_back("the reply came from " + sender + ", not from the address that it announces");
  }
  if (pc.differs) {
    notes.emplace_back("its datagrams differ; the first one is shown");
  }
  return notes;
}

}  // namespace zvqrn::scanner
