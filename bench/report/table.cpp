#include "report/table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace zvqrn::bench {
namespace {

const std::vector<double>* Find(const Results& results, const std::string& name) {
  const auto found = results.series.find(name);
  return found != results.series.end() ? &found->second : nullptr;
}

bool IsForRatio(const Row& row) {
  return !row.peer.empty() &&
         (row.aim == Aim::NONE || row.aim == Aim::RATIO_AT_MOST || row.aim == Aim::RATIO_AT_LEAST);
}

// The better end of the spread decides.
constexpr bool IsMet(Aim aim, double limit, const Spread& spread) {
  switch (aim) {
    case Aim::RATIO_AT_LEAST:
    case Aim::AT_LEAST:
      return spread.high >= limit;
    case Aim::BELOW:
      return spread.low < limit;
    default:
      return spread.low <= limit;
  }
}
static_assert(IsMet(Aim::RATIO_AT_MOST, 2, {2, 3, 4}) && !IsMet(Aim::AT_MOST, 2, {2.1, 3, 4}));
static_assert(IsMet(Aim::RATIO_AT_LEAST, 4, {2, 3, 4}) && !IsMet(Aim::AT_LEAST, 4.1, {2, 3, 4}));
static_assert(IsMet(Aim::BELOW, 2.1, {2, 3, 4}) && !IsMet(Aim::BELOW, 2, {2, 3, 4}));

// The reason that was given for the figure or for all whose names begin alike.
std::string WhyMissing(const Row& row, const Results& results) {
  for (const std::string& name : {row.ours, row.peer}) {
    for (const auto& [beginning, why] : results.missing) {
      if (name.rfind(beginning, 0) == 0) {
        return why;
      }
    }
  }
  return "no figure";
}

Judged Judge(const std::string& group, const Row& row, const Results& results) {
  Judged judged{group, row, {}, {}, {}, {}, ""};
  const std::vector<double>* ours = Find(results, row.ours);
  const std::vector<double>* peer = Find(results, row.peer);
  if (ours == nullptr || (peer == nullptr && !row.peer.empty())) {
    judged.verdict = "not measured: " + WhyMissing(row, results);
    return judged;
  }
  judged.ours = Median(*ours);
  if (peer != nullptr) {
    judged.peer = Median(*peer);
    judged.ratio = SpreadOf(Ratios(*ours, *peer));
  }
  const Spread spread = IsForRatio(row) ? *judged.ratio : SpreadOf(*ours);
  if (row.aim != Aim::NONE) {
    judged.verdict = IsMet(row.aim, row.limit, spread) ? "met" : "MISSED";
  }
  if (ours->size() > 1) {
    judged.judged = spread;
  }
  return judged;
}

std::string Print(double number, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, number);
  return text;
}

std::string Show(double value, Unit unit) {
  switch (unit) {
    case Unit::NANOSECONDS:
      if (value < 1e3) {
        return Print(value, 0) + " ns";
      }
      return value < 1e6 ? Print(value / 1e3, 1) + " us" : Print(value / 1e6, 1) + " ms";
    case Unit::PER_SECOND:
      return Print(value, value < 100 ? 2 : 0) + " /s";
    case Unit::BYTES:
      return Print(value, 0) + " B";
    case Unit::KILOBYTES:
      return Print(value, 0) + " KB";
    case Unit::PERCENT:
      return Print(value, 3) + " %";
    default:
      return Print(value, 1);
  }
}

std::string ShowSpread(const Judged& judged) {
  if (!judged.judged) {
    return "";
  }
  const auto show = [&](double value) {
    return IsForRatio(judged.row) ? Print(value, 2) : Show(value, judged.row.unit);
  };
  return show(judged.judged->low) + " to " + show(judged.judged->high);
}

using Cells = std::array<std::string, 7>;

const Cells& Headings() {
  static const Cells HEADINGS = {"what", "ours", "peer", "ratio", "spread", "aim", ""};
  return HEADINGS;
}

Cells CellsOf(const Judged& judged) {
  const Row& row = judged.row;
  std::string peer = row.peerName;
  if (judged.peer) {
    peer += ": " + Show(*judged.peer, row.unit);
  }
  return {row.what,
          judged.ours ? Show(*judged.ours, row.unit) : "",
          peer,
          judged.ratio ? Print(judged.ratio->median, 2) : "",
          ShowSpread(judged),
          AimText(row),
          judged.verdict};
}

}  // namespace

std::vector<Judged> JudgeRows(const Results& results) {
  std::vector<Judged> judged;
  for (const RowGroup& group : AllRows()) {
    for (const Row& row : group.rows) {
      judged.push_back(Judge(group.title, row, results));
    }
  }
  return judged;
}

std::string AimText(const Row& row) {
  switch (row.aim) {
    case Aim::RATIO_AT_MOST:
      return "<= " + Print(row.limit, 1);
    case Aim::RATIO_AT_LEAST:
      return ">= " + Print(row.limit, 1);
    case Aim::AT_MOST:
      return "<= " + Show(row.limit, row.unit);
    case Aim::AT_LEAST:
      return ">= " + Show(row.limit, row.unit);
    case Aim::BELOW:
      return "< " + Show(row.limit, row.unit);
    default:
      return "";
  }
}

std::string PlainTable(const std::vector<Judged>& rows) {
  const Cells& headings = Headings();
  std::array<std::size_t, std::tuple_size_v<Cells>> widths{};
  std::vector<Cells> lines{headings};
  for (const Judged& row : rows) {
    lines.push_back(CellsOf(row));
  }
  for (const Cells& line : lines) {
    for (std::size_t i = 0; i < line.size(); i++) {
      widths.at(i) = std::max(widths.at(i), line.at(i).size());
    }
  }
  std::string table;
  for (std::size_t at = 0; at < lines.size(); at++) {
    if (at > 0 && (at == 1 || rows[at - 1].group != rows[at - 2].group)) {
      table += "\n" + rows[at - 1].group + "\n";
    }
    std::string text;
    for (std::size_t i = 0; i < widths.size(); i++) {
      const std::string& cell = lines[at].at(i);
      text += cell + std::string(widths.at(i) - cell.size() + 2, ' ');
    }
    table += text.substr(0, text.find_last_not_of(' ') + 1) + "\n";
  }
  return table;
}

std::string MarkdownTable(const std::vector<Judged>& rows) {
  const auto add = [](std::string* table, const Cells& cells) {
    for (const std::string& cell : cells) {
      *table += "| " + cell + " ";
    }
    *table += "|\n";
  };
  std::string table;
  const std::string* group = nullptr;
  for (const Judged& row : rows) {
    if (group == nullptr || row.group != *group) {
      group = &row.group;
      table += (table.empty() ? "**" : "\n**") + row.group + "**\n\n";
      add(&table, Headings());
      table += "|---|---|---|---|---|---|---|\n";
    }
    add(&table, CellsOf(row));
  }
  return table;
}

}  // namespace zvqrn::bench
