#include "report/table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace zvqrn::bench {
namespace {

struct Value {
  std::optional<double> ours;
  std::optional<double> peer;
  std::optional<double> ratio;
  std::optional<bool> met;  // nothing: no aim, or no figure
};

std::optional<double> Find(const Results& results, const char* name) {
  const auto found = name != nullptr ? results.figures.find(name) : results.figures.end();
  return found != results.figures.end() ? std::optional<double>(found->second) : std::nullopt;
}

Value Judge(const Row& row, const Results& results) {
  Value value{Find(results, row.ours), Find(results, row.peer), {}, {}};
  if (value.ours && value.peer && *value.peer > 0) {
    value.ratio = *value.ours / *value.peer;
  }
  switch (row.aim) {
    case Aim::NONE:
      break;
    case Aim::RATIO_AT_MOST:
      if (value.ratio) {
        value.met = *value.ratio <= row.limit;
      }
      break;
    case Aim::RATIO_AT_LEAST:
      if (value.ratio) {
        value.met = *value.ratio >= row.limit;
      }
      break;
    case Aim::VALUE_BELOW:
      if (value.ours) {
        value.met = *value.ours < row.limit;
      }
      break;
  }
  return value;
}

// The reason that was given for the figure or for all whose names begin alike.
std::string WhyMissing(const Row& row, const Results& results) {
  for (const char* name : {row.ours, row.peer}) {
    for (const auto& [beginning, why] : results.missing) {
      if (name != nullptr && std::string(name).rfind(beginning, 0) == 0) {
        return why;
      }
    }
  }
  return "no figure";
}

std::string Print(double number, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, number);
  return text;
}

std::string Show(const std::optional<double>& value, Unit unit) {
  if (!value) {
    return "";
  }
  switch (unit) {
    case Unit::NANOSECONDS:
      if (*value < 1e3) {
        return Print(*value, 0) + " ns";
      }
      return *value < 1e6 ? Print(*value / 1e3, 1) + " us" : Print(*value / 1e6, 1) + " ms";
    case Unit::PER_SECOND:
      return Print(*value, *value < 100 ? 1 : 0) + " /s";
    case Unit::BYTES:
      return Print(*value, 0) + " B";
    case Unit::KILOBYTES:
      return Print(*value, 0) + " KB";
    case Unit::PERCENT:
      return Print(*value, 3) + " %";
    default:
      return Print(*value, 1);
  }
}

std::string ShowAim(const Row& row) {
  switch (row.aim) {
    case Aim::RATIO_AT_MOST:
      return "<= " + Print(row.limit, 1);
    case Aim::RATIO_AT_LEAST:
      return ">= " + Print(row.limit, 1);
    case Aim::VALUE_BELOW:
      return "< " + Show(row.limit, row.unit);
    default:
      return "";
  }
}

std::array<std::string, 6> Cells(const Line& line) {
  return {line.what, line.ours, line.peer, line.ratio, line.aim, line.verdict};
}

constexpr std::array<const char*, 6> HEADINGS = {"what", "ours", "peer", "ratio", "aim", ""};

}  // namespace

std::vector<Line> FillRows(const Results& results) {
  std::vector<Line> lines;
  for (const RowGroup& group : AllRows()) {
    for (const Row& row : group.rows) {
      const Value value = Judge(row, results);
      Line line{group.title, row.what, Show(value.ours, row.unit), "", "", ShowAim(row), ""};
      if (row.peer != nullptr) {
        line.peer =
            std::string(row.peerName) + (value.peer ? ": " : "") + Show(value.peer, row.unit);
      }
      line.ratio = value.ratio ? Print(*value.ratio, 2) : "";
      if (!value.ours || (row.peer != nullptr && !value.ratio)) {
        line.verdict = "not measured: " + WhyMissing(row, results);
      } else if (value.met) {
        line.verdict = *value.met ? "met" : "MISSED";
      }
      lines.push_back(line);
    }
  }
  return lines;
}

std::string PlainTable(const std::vector<Line>& lines) {
  std::array<std::size_t, HEADINGS.size()> widths{};
  for (const Line& line : lines) {
    const auto cells = Cells(line);
    for (std::size_t i = 0; i < cells.size(); i++) {
      widths.at(i) =
          std::max({widths.at(i), cells.at(i).size(), std::string(HEADINGS.at(i)).size()});
    }
  }
  const auto add = [&](std::string* table, auto cells) {
    std::string text;
    for (std::size_t i = 0; i < cells.size(); i++) {
      const std::string cell = cells.at(i);
      text += cell + std::string(widths.at(i) - cell.size() + 2, ' ');
    }
    *table += text.substr(0, text.find_last_not_of(' ') + 1) + "\n";
  };
  std::string table;
  add(&table, HEADINGS);
  std::string group;
  for (const Line& line : lines) {
    if (line.group != group) {
      group = line.group;
      table += "\n" + group + "\n";
    }
    add(&table, Cells(line));
  }
  return table;
}

std::string MarkdownTable(const std::vector<Line>& lines) {
  const auto add = [](std::string* table, const auto& cells) {
    for (const auto& cell : cells) {
      *table += "| " + std::string(cell) + " ";
    }
    *table += "|\n";
  };
  std::string table;
  std::string group;
  for (const Line& line : lines) {
    if (line.group != group) {
      group = line.group;
      table += (table.empty() ? "**" : "\n**") + group + "**\n\n";
      add(&table, HEADINGS);
      table += "|---|---|---|---|---|---|\n";
    }
    add(&table, Cells(line));
  }
  return table;
}

nlohmann::ordered_json JsonRows(const Results& results) {
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  const auto number = [](const std::optional<double>& value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
  };
  const std::vector<Line> lines = FillRows(results);
  std::size_t at = 0;
  for (const RowGroup& group : AllRows()) {
    for (const Row& row : group.rows) {
      const Value value = Judge(row, results);
      const Line& line = lines.at(at++);
      nlohmann::ordered_json entry;
      entry["group"] = group.title;
      entry["what"] = row.what;
      entry["ours"] = number(value.ours);
      entry["peerName"] = row.peerName;
      entry["peer"] = number(value.peer);
      entry["ratio"] = number(value.ratio);
      entry["aim"] = line.aim;
      entry["verdict"] = line.verdict;
      rows.push_back(entry);
    }
  }
  return rows;
}

}  // namespace zvqrn::bench
