-- Wireshark dissector for the two protocols between scanners and a PC with ZVQRN: event messages on
-- TCP port 2968, and searches on UDP port 2968, which Wireshark's own SLP dissector shows as well.
--
-- Install: copy this file into Wireshark's folder for personal Lua plugins (Help, About, Folders).
-- Or for once: tshark -X lua_script:zvqrn.lua -2 -r scan.pcapng
--
-- It puts messages together over segments, shows every header and element as a field to filter by
-- (zvqrn.status, zvqrn.uid, zvqrn.product ...), ties answers and data to requests and an END to its
-- START, and says what the library does with each message of a scanner and by which rule
-- (zvqrn.rule).  It judges as quorin-scanner explain does.  What only later packets can tell, such as
-- an answer that never comes, shows once the whole capture has been read (with tshark: -2).

local zvqrn = Proto("zvqrn", "Zorva Network Service Protocol")
local search = Proto("zvqrn_search", "Search for a PC with ZVQRN")
local watch = Proto("zvqrn_watch", "Connections to a PC with ZVQRN")

local PORT = 2968

-- ---- The words of the protocol: the same as in tools/common/vocabulary.cpp -------------------------

-- Name, outcome, x-status, sentence: the table of quorin-scanner explain --rules.
local RULES = {
  {"accepted", "accepted", "", "The request is in order and goes to the host."},
  {"lf-lines", "dropped", "", "The lines of the head end in LF alone; each must end in CR LF."},
  {"start-line", "dropped", "",
    "The start line is not three tokens with single spaces, the third or the first with HTTP/."},
  {"header-line", "dropped", "",
    "A header line has no colon, an empty name or value, or a NUL in it."},
  {"head-too-long", "dropped", "", "The head has more than 4096 bytes."},
  {"head-cut", "dropped", "",
    "The head did not come whole: the connection ended, or was silent for 10 s."},
  {"negative-length", "dropped", "",
    "Content-Length is negative and cuts the message inside its own head."},
  {"body-cut", "dropped", "", "The scanner ended the connection inside the body."},
  {"response", "dropped", "", "It is a response; the library looks at none."},
  {"protocol-name", "dropped", "", "x-protocol-name is missing or not the name of this protocol."},
  {"uid-missing", "dropped", "", "x-uid is missing."},
  {"uid-too-long", "dropped", "", "x-uid has more than 19 bytes."},
  {"version-missing", "refused", "1004", "x-protocol-version is missing."},
  {"version", "refused", "1001",
    "x-protocol-version is neither 2.00 nor one that begins with 1 and a dot."},
  {"subevent", "refused", "1004", "x-subevent is neither START nor END."},
  {"parent-missing", "refused", "1004", "An END without x-parent-uid."},
  {"parent", "refused", "2002",
    "x-parent-uid names no START of this connection that is open and has been answered."},
  {"no-body", "refused", "1003",
    "Content-Length is missing or not above 0, or no byte of the body came."},
  {"no-document", "refused", "2003",
    "The body has no start tag <p:PushScan with a space behind it."},
  {"field", "refused", "2003",
    "An element of the document is missing, too long, or holds what it must not."},
  {"busy", "refused", "2001", "Another connection is being served; this one gets a single answer."},
  {"extra-head", "closed", "",
    "Another connection is being served, and the first bytes of this one hold no whole head."},
  {"extra-version", "closed", "",
    "Another connection is being served, and x-protocol-version is missing."},
  {"places-taken", "closed", "",
    "All places for connections are taken; this one was closed at once."},
  {"not-listening", "closed", "",
    "Nothing listens at the PC's event port: the service does not run."},
  {"no-connection", "unanswered", "",
    "The PC does not take the connection: a firewall drops it, or the address is wrong."},
  {"no-driver", "refused", "",
    "StatusOut TWAIN_NOT_INSTALL: the PC's utility library knows no driver for this product, or the host says so."},
  {"no-utility-library", "refused", "",
    "StatusOut ERROR: the PC has no utility library, or the host failed."},
  {"host-refused", "refused", "", "The host declined, with a word of its own."},
  {"host-busy", "refused", "2001",
    "Busy: the host declined, the service was stopping, or a connection not seen here is served."},
  {"internal-failure", "refused", "3001", "The PC ran out of memory or threads."},
  {"no-answer", "unanswered", "",
    "Nothing is wrong with the request, and no answer was seen: the host's callback has not returned."},
  {"unexpected", "unexpected", "",
    "The PC did otherwise than this library: another program, or another version."},
  {"answered", "accepted", "", "The search was replied to."},
  {"answerable", "accepted", "", "Nothing is wrong with the search: a PC replies to it."},
  {"scope-asked", "accepted", "",
    "A PC replies if its utility library knows the scanner and its host agrees."},
  {"datagram-size", "ignored", "", "The datagram has more than 1400 bytes."},
  {"slp-header", "ignored", "", "The header of the search is malformed."},
  {"slp-function", "ignored", "", "It is no attribute request."},
  {"slp-body", "ignored", "", "A text of the search does not lie inside it."},
  {"service-type", "ignored", "", "The search is for another service."},
  {"scope-list", "ignored", "",
    "The scope list is neither default nor a single name that can be read."},
  {"previous-responder", "ignored", "", "The search says that this PC has answered before."},
  {"repeated", "ignored", "",
    "The reply to the same search, with this sender and XID, is still in progress."},
  {"language-tag", "ignored", "", "The language tag is empty."},
  {"scope-unserved", "ignored", "",
    "No reply was seen: the utility library is missing or does not know this scanner, or the host's filter declined."},
  {"no-reply", "unanswered", "",
    "Nothing is wrong with the search, and no reply was seen: no service with an address, or a firewall."},
}

local HEADERS = {
  {"Server", "server"},
  {"Content-Type", "content_type"},
  {"Content-Length", "content_length"},
  {"x-protocol-name", "protocol_name"},
  {"x-protocol-version", "protocol_version"},
  {"x-subevent", "subevent"},
  {"x-uid", "uid"},
  {"x-parent-uid", "parent_uid"},
  {"x-status", "status"},
}

local STATUS_CODES = {
  ["0001"] = "accepted",
  ["0002"] = "accepted, though the PC knows this version 1 only as 1.00",
  ["1001"] = "refused: protocol version not supported",
  ["1003"] = "refused: no body, or no usable Content-Length",
  ["1004"] = "refused: x-protocol-version, x-subevent or x-parent-uid missing or wrong",
  ["2001"] = "busy: the host declined, another scanner is connected, or the service is stopping",
  ["2002"] = "refused: x-parent-uid names no open START of this connection",
  ["2003"] = "refused: the document cannot be read or holds a bad value",
  ["3001"] = "internal failure on the PC",
}

local IMAGE_FORMATS = {"PDF", "TIFF", "JPEG"}
local COLOR_TYPES = {"Color", "Monochrome"}
local LOAD_PAPERS = {"Auto", "Flatbed", "Single", "Double"}
local PAPER_TYPES = {
  "Auto", "User", "A3", "A4", "A4_Landscape", "B4", "B5", "B5_Landscape", "Letter",
  "Letter_Landscape", "Legal",
}
local STATUS_OUT_WORDS = {
  "OK", "PARAM_ERR", "PARSE_ERR", "PM_EXECUTE_ERR", "PM_NOT_INSTALL", "TWAIN_NOT_INSTALL", "ERROR",
}

-- Element, field, and what it holds: a name, a list of words, a measure, a push-scan ID.
local SETTINGS_ELEMENTS = {
  {"ProductNameIn", "product", "name"},
  {"IPAddressIn", "ip", "name"},
  {"ImageFormatIn", "image_format", IMAGE_FORMATS},
  {"ColorTypeIn", "color", COLOR_TYPES},
  {"LoadPaperIn", "load_paper", LOAD_PAPERS},
  {"PaperTypeIn", "paper_type", PAPER_TYPES},
  {"PaperWidthIn", "paper_width", "measure"},
  {"PaperHeightIn", "paper_height", "measure"},
  {"ScanXIn", "scan_x", "measure"},
  {"ScanYIn", "scan_y", "measure"},
}
local ID_ELEMENTS = {
  {"ProductNameIn", "product", "name"},
  {"IPAddressIn", "ip", "name"},
  {"PushScanIDIn", "push_scan_id", "id"},
}

local PROTOCOL_NAME = "Zorva Network Service Protocol"
local SERVICE_TYPE = "service:Quorin-agent"
local HEAD_LIMIT = 4096
local MESSAGE_LIMIT = 1024 * 1024
local HEAD_SILENCE = 10
local BODY_PAUSE = 0.3
local BODY_TIME = 30
local EXTRA_PLACES = 5
local EARLY_LIMIT = 64
local DATAGRAM_LIMIT = 1400
local REPLY_TIME = 1.5
local REPLY_PATIENCE = 30

-- ---- Fields ----------------------------------------------------------------------------------------

local fields = {
  kind = ProtoField.string("zvqrn.kind", "Kind"),
  start_line = ProtoField.string("zvqrn.start_line", "Start line"),
  header = ProtoField.string("zvqrn.header", "Header"),
  status_out = ProtoField.string("zvqrn.status_out", "StatusOut"),
  data = ProtoField.bytes("zvqrn.data", "Data of the host"),
  answer_in = ProtoField.framenum("zvqrn.answer_in", "Answer in", base.NONE, frametype.RESPONSE),
  request_in = ProtoField.framenum("zvqrn.request_in", "Request in", base.NONE, frametype.REQUEST),
  start_in = ProtoField.framenum("zvqrn.start_in", "START in"),
  time = ProtoField.double("zvqrn.time", "Seconds since the request"),
  rule = ProtoField.string("zvqrn.rule", "Rule"),
  outcome = ProtoField.string("zvqrn.outcome", "Outcome"),
  detail = ProtoField.string("zvqrn.detail", "Detail"),
}
for _, header in ipairs(HEADERS) do
  fields[header[2]] = ProtoField.string("zvqrn." .. header[2], header[1])
end
for _, elements in ipairs({SETTINGS_ELEMENTS, ID_ELEMENTS}) do
  for _, element in ipairs(elements) do
    fields[element[2]] = fields[element[2]] or
      ProtoField.string("zvqrn." .. element[2], element[1])
  end
end
zvqrn.fields = fields

local search_fields = {
  xid = ProtoField.uint16("zvqrn.search.xid", "XID", base.HEX),
  scope = ProtoField.string("zvqrn.search.scope", "Scope"),
  replies = ProtoField.uint32("zvqrn.search.replies", "Replies"),
  reply_in = ProtoField.framenum("zvqrn.search.reply_in", "First reply in", base.NONE, frametype.RESPONSE),
  request_in = ProtoField.framenum("zvqrn.search.request_in", "Search in", base.NONE, frametype.REQUEST),
  time = ProtoField.double("zvqrn.search.time", "Seconds since the search"),
}
search.fields = search_fields

local SEVERITIES = {
  accepted = expert.severity.CHAT,
  refused = expert.severity.WARN,
  ignored = expert.severity.WARN,
  dropped = expert.severity.ERROR,
  closed = expert.severity.ERROR,
  unanswered = expert.severity.ERROR,
  unexpected = expert.severity.ERROR,
}
local rules = {}
local experts = {}
for _, row in ipairs(RULES) do
  local severity = row[1] == "response" and expert.severity.NOTE or SEVERITIES[row[2]]
  local key = row[1]:gsub("-", "_")
  rules[row[1]] = {
    outcome = row[2],
    status = row[3],
    sentence = row[4],
    expert = ProtoExpert.new("zvqrn.expert." .. key, row[4], expert.group.PROTOCOL, severity),
  }
  table.insert(experts, rules[row[1]].expert)
end
zvqrn.experts = experts

-- ---- What has been seen ----------------------------------------------------------------------------

local latest, main_of, others_of, items_of_frame, connection_of_frame, last_search, search_in_order,
  announced, searches_of_frame, datagram_of_frame, last_sent

local function forget()
  latest = {}             -- by both ends: the last connection between them
  others_of = {}          -- by the PC's address: the others, that may be open
  main_of = {}            -- by the PC's address: its main connection
  items_of_frame = {}     -- by frame: lists of messages
  connection_of_frame = {}
  last_search = {}        -- by sender and XID: the last that is no repeat
  search_in_order = {}    -- by sender, XID and "any", "group" or a PC's address: the last in order
  announced = {}          -- addresses of PCs
  searches_of_frame = {}  -- by frame: a search or a reply
  datagram_of_frame = {}  -- what came to the port, until it is taken
  last_sent = nil         -- the datagram that the capturing machine sent last
end
forget()

local function add_item(frame, item)
  items_of_frame[frame] = items_of_frame[frame] or {}
  table.insert(items_of_frame[frame], item)
  item.frame = frame
  return item
end

-- ---- Heads and documents, read as the library reads them -------------------------------------------

local function trim(text)
  return (text:gsub("^[ \t]+", ""):gsub("[ \t]+$", ""))
end

local function header(head, name)
  name = name:lower()
  for _, line in ipairs(head.headers) do
    if line.name:lower() == name then
      return line.value
    end
  end
  return nil
end

-- The number at the begin of a text, within 32 bits.
local function leading_number(text)
  local sign, digits = text:match("^[ \t\n\v\f\r]*([+-]?)(%d*)")
  local number = tonumber(digits) or 0
  if number > 2147483647 then
    return sign == "-" and -2147483648 or 2147483647
  end
  return sign == "-" and -number or number
end

local function lacks_carriage_return(bytes)
  local feed = bytes:find("\n", 1, true)
  return feed ~= nil and bytes:sub(feed - 1, feed - 1) ~= "\r"
end

-- "unfinished", "malformed" (with the rule) or "complete".
local function read_head(bytes)
  local head = {state = "unfinished", headers = {}}
  local line_end = bytes:find("\r\n", 1, true)
  if not line_end then
    return head
  end
  local line = bytes:sub(1, line_end - 1)
  head.start_line = line
  local first, second, third = line:match("^([^ ]+) ([^ ]+) ([^ ]*)$")
  local is_request = third and third:find("HTTP/", 1, true)
  head.is_response = not is_request and first and first:find("HTTP/", 1, true) ~= nil
  if not (second and (is_request or head.is_response)) then
    head.state = "malformed"
    head.rule = lacks_carriage_return(bytes) and "lf-lines" or "start-line"
    return head
  end
  while true do
    local line_start = line_end + 2
    line_end = bytes:find("\r\n", line_start, true)
    if not line_end then
      return head
    end
    if line_end == line_start then
      break
    end
    line = bytes:sub(line_start, line_end - 1)
    local colon = line:find(":", 1, true)
    local name = colon and trim(line:sub(1, colon - 1)) or ""
    local value = colon and trim(line:sub(colon + 1)) or ""
    if name == "" or value == "" or line:find("\0", 1, true) then
      head.state = "malformed"
      head.rule = "header-line"
      return head
    end
    table.insert(head.headers,
      {name = name, value = value, offset = line_start - 1, size = #line})
  end
  head.state = "complete"
  head.length = line_end + 1
  head.content_length = leading_number(header(head, "Content-Length") or "")
  return head
end

local function why_unfinished(held)
  local bare = not held:find("\r\n", 1, true) and held:find("\n", 1, true)
  return bare and "lf-lines" or "head-cut"
end

local function up_to_nul(text)
  local nul = text:find("\0", 1, true)
  return nul and text:sub(1, nul - 1) or text
end

-- The text of an element and its offset, or nil.
local function find_element(body, name)
  local text = up_to_nul(body)
  local _, tag_end = text:find("<" .. name .. ">", 1, true)
  local text_end = tag_end and text:find("</" .. name .. ">", tag_end + 1, true)
  if not text_end then
    return nil
  end
  return text:sub(tag_end + 1, text_end - 1), tag_end
end

local function has_word(words, text)
  for _, word in ipairs(words) do
    if word:lower() == text:lower() then
      return true
    end
  end
  return false
end

local function value_problem(kind, text, is_version_2)
  if kind == "name" then
    if #text > 31 then
      return string.format("has %d bytes, more than 31", #text)
    end
    return text == "" and not is_version_2 and "is empty" or nil
  end
  if type(kind) == "table" then
    return not has_word(kind, text) and
      "'" .. text .. "' is none of " .. table.concat(kind, " ") or nil
  end
  local least, most = 0, 999999999
  if kind == "id" then
    least, most = 1, 3
  end
  local number = leading_number(text)
  if #text > 9 or not text:match("^[ \t\n\v\f\r]*[+-]?%d*$") or number < least or number > most then
    return string.format("'%s' is no number from %d to %d", text, least, most)
  end
  return nil
end

local function judge_document(body, is_version_2)
  if not up_to_nul(body):find("<p:PushScan ", 1, true) then
    return "no-document", ""
  end
  for _, element in ipairs(is_version_2 and ID_ELEMENTS or SETTINGS_ELEMENTS) do
    local text = find_element(body, element[1])
    if not text then
      return "field", element[1] .. " is missing, or has no end tag"
    end
    local problem = value_problem(element[3], text, is_version_2)
    if problem then
      return "field", element[1] .. " " .. problem
    end
  end
  return "accepted", ""
end

local function judge_extra(head)
  local name = header(head, "x-protocol-name") or ""
  if name:sub(1, #PROTOCOL_NAME):lower() ~= PROTOCOL_NAME:lower() then
    return "protocol-name", name
  end
  local uid = header(head, "x-uid")
  if not uid or #uid > 19 then
    return uid and "uid-too-long" or "uid-missing", ""
  end
  return header(head, "x-protocol-version") and "busy" or "extra-version", ""
end

local function judge_subevent(head, parent_is_open)
  local word = header(head, "x-subevent")
  if not word or word:upper() == "START" then
    return "accepted", ""
  end
  if word:upper() ~= "END" then
    return "subevent", word
  end
  local parent = header(head, "x-parent-uid")
  if not parent then
    return "parent-missing", ""
  end
  return parent_is_open and "accepted" or "parent", parent_is_open and "" or parent
end

-- What the library does with one whole message of a scanner: the rule and what meets it.
local function judge_message(head, body, is_main, parent_is_open)
  if head.is_response then
    return "response", ""
  end
  if not is_main then
    return judge_extra(head)
  end
  local name = header(head, "x-protocol-name") or ""
  if name:lower() ~= PROTOCOL_NAME:lower() then
    return "protocol-name", name
  end
  local uid = header(head, "x-uid")
  if not uid then
    return "uid-missing", ""
  end
  if #uid > 19 then
    return "uid-too-long", #uid .. " bytes"
  end
  local version = header(head, "x-protocol-version")
  if not version then
    return "version-missing", ""
  end
  if version ~= "2.00" and version:sub(1, 2) ~= "1." then
    return "version", version
  end
  local rule, detail = judge_subevent(head, parent_is_open)
  if rule ~= "accepted" then
    return rule, detail
  end
  if head.content_length < 1 or body == "" then
    local length = header(head, "Content-Length")
    return "no-body", length and "Content-Length " .. length or "no Content-Length"
  end
  rule, detail = judge_document(body, version == "2.00")
  if rule ~= "accepted" and #body < head.content_length then
    detail = string.format("%s%sonly %d of %d bytes of the body had come", detail,
      detail == "" and "" or "; ", #body, head.content_length)
  end
  return rule, detail
end

-- ---- Connections -----------------------------------------------------------------------------------

local function is_open(connection)
  return not (connection.from_scanner.ended or connection.from_pc.ended or connection.refused)
end

local function new_side()
  -- body_since: when the head of what is held was whole; nil before.
  return {held = "", pieces = {}, lacks = 0, early = {}, last_frame = 0, last_time = 0}
end

-- How many connections beside the main one are open, as far as that matters; forgets the others.
local function count_others(pc)
  others_of[pc] = others_of[pc] or {}
  local others = others_of[pc]
  local open = 0
  while open < #others and open < EXTRA_PLACES do
    if is_open(others[open + 1]) then
      open = open + 1
    else
      others[open + 1] = others[#others]
      table.remove(others)
    end
  end
  return open
end

local function begin_connection(segment)
  local connection = {
    is_main = true, pc = segment.pc, opened_in = segment.frame, opening = segment.sequence,
    others_open = 0, jobs = {}, last_request = {}, waiting = {}, from_scanner = new_side(),
    from_pc = new_side(),
  }
  local main = main_of[connection.pc]
  if main and is_open(main) then
    connection.is_main = false
    connection.main_since = main.opened_in
    connection.others_open = count_others(connection.pc)
    table.insert(others_of[connection.pc], connection)
  else
    main_of[connection.pc] = connection
  end
  latest[segment.ends] = connection
  return connection
end

local function subevent_of(head)
  return (header(head, "x-subevent") or ""):upper()
end

-- The oldest job under this uid; nil when there is none, or one of them is an END.
local function find_open_job(connection, uid)
  local jobs = connection.jobs[uid]
  for _, job in ipairs(jobs or {}) do
    if job.is_end then
      return nil
    end
  end
  return jobs and jobs[1]
end

-- Adds to a list of a table of lists, and takes from it.
local function add_to(lists, key, value)
  lists[key] = lists[key] or {}
  table.insert(lists[key], value)
end

local function take_from(lists, key, at)
  local value = table.remove(lists[key], at)
  if #lists[key] == 0 then
    lists[key] = nil
  end
  return value
end

local function take_message(connection, head, message)
  local side = connection.from_scanner
  local body = message:sub(head.length + 1)
  local parent
  local parent_is_open = true
  if subevent_of(head) == "END" then
    parent = find_open_job(connection, header(head, "x-parent-uid") or "")
    -- The START may lie before the capture.
    if parent then
      parent_is_open = parent.answered or not connection.from_pc.next
    else
      parent_is_open = not connection.begun
    end
  end
  local rule, detail = judge_message(head, body, connection.is_main, parent_is_open)
  local item = add_item(side.last_frame, {
    kind = "request", time = side.last_time, bytes = message, head = head, rule = rule,
    detail = detail, uid = header(head, "x-uid") or "", connection = connection,
    on_extra = not connection.is_main,
  })
  item.start = parent and parent.item
  if rule == "busy" then
    item.detail = "the connection that is served began in frame " .. connection.main_since
  end
  connection.last_request[item.uid] = item
  if not head.is_response then
    add_to(connection.waiting, item.uid, item)
  end
  if rule == "accepted" then
    add_to(connection.jobs, item.uid, {
      item = item, is_start = subevent_of(head) == "START", is_end = subevent_of(head) == "END",
    })
  end
  return item
end

local function dropped_item(connection, rule, head)
  local side = connection.from_scanner
  return {
    kind = "request", time = side.last_time, bytes = side.held, head = head, rule = rule,
    detail = side.held:match("^[^\r\n]*"):sub(1, 60), uid = "", dropped = true,
    on_extra = not connection.is_main,
  }
end

local function drop_held(connection, rule, head)
  local side = connection.from_scanner
  local item = add_item(side.last_frame, dropped_item(connection, rule, head))
  side.held = ""
  side.body_since = nil
  return item
end

-- The bytes of a message that the library takes together.
local function size_of(head)
  return math.min(head.length + head.content_length, MESSAGE_LIMIT)
end

local function cut_messages(connection, last)
  local side = connection.from_scanner
  while side.held ~= "" do
    local head = read_head(side.held)
    if head.state == "unfinished" then
      if #side.held >= HEAD_LIMIT then
        drop_held(connection, "head-too-long", head)
      end
      return
    end
    if head.state == "malformed" then
      drop_held(connection, head.rule, head)
      return
    end
    local total = head.length + head.content_length
    if total >= 0 and head.content_length < 0 then
      drop_held(connection, "negative-length", head)
      return
    end
    local wanted = total < 0 and #side.held or size_of(head)
    if #side.held < wanted and not last then
      side.body_since = side.body_since or side.last_time
      return
    end
    side.body_since = nil
    take_message(connection, head, side.held:sub(1, wanted))
    side.held = side.held:sub(wanted + 1)
  end
end

local function age_held(connection, now)
  local side = connection.from_scanner
  if side.held == "" then
    return
  end
  local head = read_head(side.held)
  if head.state ~= "complete" then
    if now - side.last_time >= HEAD_SILENCE then
      drop_held(connection, why_unfinished(side.held), head)
    end
  elseif now - side.last_time > BODY_PAUSE then
    cut_messages(connection, true)
  end
end

local function note_piece(side, piece)
  side.last_frame = piece.frame
  side.last_time = piece.time
end

local function take_scanner_bytes(connection, piece)
  local side = connection.from_scanner
  if not connection.is_main then
    if connection.judged then
      return
    end
    connection.judged = true
    note_piece(side, piece)
    side.held = piece.bytes:sub(1, HEAD_LIMIT)
    local head = read_head(side.held)
    local item
    if head.state == "complete" then
      item = take_message(connection, head, side.held)
      side.held = ""
    else
      local bare = why_unfinished(side.held) == "lf-lines" or head.rule == "lf-lines"
      item = drop_held(connection, bare and "lf-lines" or "extra-head", head)
    end
    if connection.others_open >= EXTRA_PLACES then
      item.rule = "places-taken"
      item.detail = ""
    end
    return
  end
  age_held(connection, piece.time)
  note_piece(side, piece)
  local at = 1
  while at <= #piece.bytes do
    local head = read_head(side.held)
    local most = head.state == "complete" and size_of(head) or HEAD_LIMIT
    local taken = piece.bytes:sub(at, at + most - #side.held - 1)
    at = at + #taken
    side.held = side.held .. taken
    cut_messages(connection, false)
    if side.body_since and piece.time - side.body_since >= BODY_TIME then
      cut_messages(connection, true)
    end
  end
end

local function rule_of_answer(answer)
  if answer.status == "2001" then
    return "host-busy"
  elseif answer.status == "3001" then
    return "internal-failure"
  end
  local word = (answer.status_out or ""):upper()
  if (answer.status ~= "0001" and answer.status ~= "0002") or
      not has_word(STATUS_OUT_WORDS, word) then
    return "unexpected"
  end
  local own = {OK = "accepted", TWAIN_NOT_INSTALL = "no-driver", ERROR = "no-utility-library"}
  return own[word] or "host-refused"
end

local function settle_job(connection, request)
  for at, job in ipairs(connection.jobs[request.uid] or {}) do
    if job.item == request then
      if job.is_start then
        job.answered = true
        return
      end
      take_from(connection.jobs, request.uid, at)
      if request.start then
        connection.jobs[request.start.uid] = nil
      end
      return
    end
  end
end

-- Takes the request that an answer is for from those that wait.
local function take_waiting(connection, uid)
  local waiting = connection.waiting[uid]
  if not waiting then
    return nil
  end
  local found = 1
  for at, item in ipairs(waiting) do
    local outcome = rules[item.rule].outcome
    if outcome == "accepted" or outcome == "refused" then
      found = at
      break
    end
  end
  return take_from(connection.waiting, uid, found)
end

local function tie_answer(connection, answer)
  local request = take_waiting(connection, answer.uid)
  if not request then
    return
  end
  request.answer = answer
  answer.request = request
  if request.rule == "accepted" then
    request.rule = rule_of_answer(answer)
    if answer.status == "2002" then
      request.rule = "parent"
      request.detail = request.start and "the library itself had answered that START" or
        "its START is not in the capture"
    end
  elseif rules[request.rule].status ~= answer.status then
    request.detail = "by the rule " .. request.rule .. " another answer was due; " .. request.detail
    request.rule = answer.status == "2001" and "busy" or "unexpected"
  end
  settle_job(connection, request)
end

local function take_pc_message(connection, head, message)
  local side = connection.from_pc
  local item = add_item(side.last_frame, {
    kind = head.is_response and "answer" or "data", time = side.last_time, bytes = message,
    head = head, uid = header(head, "x-uid") or "", status = header(head, "x-status") or "",
  })
  if head.is_response then
    item.status_out = find_element(message:sub(head.length + 1), "StatusOut")
    tie_answer(connection, item)
    return
  end
  item.request = connection.last_request[header(head, "x-parent-uid") or ""]
end

local function take_pc_bytes(connection, piece)
  local side = connection.from_pc
  note_piece(side, piece)
  -- Data of the host may be long: its pieces are joined when all are there.
  table.insert(side.pieces, piece.bytes)
  side.lacks = side.lacks - #piece.bytes
  if side.lacks > 0 then
    return
  end
  side.held = side.held .. table.concat(side.pieces)
  side.pieces = {}
  side.lacks = 0
  while side.held ~= "" do
    local head = read_head(side.held)
    if head.state == "malformed" or head.state == "unfinished" and #side.held >= HEAD_LIMIT then
      side.held = ""
    end
    local total = (head.length or 0) + math.max(head.content_length or 0, 0)
    if head.state ~= "complete" or #side.held < total then
      side.lacks = math.max(total - #side.held, 0)
      return
    end
    take_pc_message(connection, head, side.held:sub(1, total))
    side.held = side.held:sub(total + 1)
  end
end

-- ---- Segments --------------------------------------------------------------------------------------

local function take_turn(side, segment)
  side.next = side.next or segment.sequence
  local ahead = (segment.sequence - side.next) % 4294967296
  if ahead >= 2147483648 then
    ahead = ahead - 4294967296
  end
  if ahead > 0 then
    return nil
  end
  local bytes = segment.bytes:sub(1 - ahead)
  side.next = (side.next + #bytes) % 4294967296
  return {frame = segment.frame, time = segment.time, bytes = bytes}
end

local function take_early(side)
  for at, segment in ipairs(side.early) do
    local piece = take_turn(side, segment)
    if piece then
      piece.time = math.max(piece.time, side.last_time)
      table.remove(side.early, at)
      return piece
    end
  end
  if #side.early > EARLY_LIMIT then
    side.held = ""
    side.body_since = nil
    side.next = side.early[1].sequence
    return take_early(side)
  end
  return nil
end

local function note_opening(connection, side, segment)
  if segment.syn then
    side.next = (segment.sequence + 1) % 4294967296
    connection.begun = connection.begun or segment.from_scanner
  end
  if not segment.from_scanner then
    connection.refused = connection.refused or (segment.reset and not connection.accepted)
    connection.accepted = connection.accepted or not segment.reset
  end
end

local function take_bytes(connection, side, segment)
  local piece = take_turn(side, segment)
  if not piece then
    table.insert(side.early, segment)
    piece = take_early(side)
  end
  while piece do
    if piece.bytes ~= "" then
      if segment.from_scanner then
        take_scanner_bytes(connection, piece)
      else
        take_pc_bytes(connection, piece)
      end
    end
    piece = take_early(side)
  end
end

local function take_segment(segment)
  local connection = latest[segment.ends]
  if not connection or
      (segment.from_scanner and segment.syn and segment.sequence ~= connection.opening) then
    connection = begin_connection(segment)
  end
  connection_of_frame[segment.frame] = connection
  local side = segment.from_scanner and connection.from_scanner or connection.from_pc
  note_opening(connection, side, segment)
  age_held(connection, segment.time)
  if segment.bytes ~= "" and not segment.syn then
    take_bytes(connection, side, segment)
  end
  if segment.fin or segment.reset then
    connection.ended_by = connection.ended_by or segment.from_scanner and "the scanner" or "the PC"
    side.ended = true
    if segment.from_scanner and side.held ~= "" then
      local head = read_head(side.held)
      drop_held(connection, head.state == "complete" and "body-cut" or why_unfinished(side.held), head)
    end
  end
end

-- ---- Frames ----------------------------------------------------------------------------------------

local function number_at(bytes, at, size)
  local number = 0
  for i = at, at + size - 1 do
    number = number * 256 + (bytes:byte(i) or 0)
  end
  return number
end

local function address_bytes(address)
  local parts = {tostring(address):match("^(%d+)%.(%d+)%.(%d+)%.(%d+)$")}
  return #parts == 4 and string.char(parts[1], parts[2], parts[3], parts[4]) or nil
end

-- Where a frame's IPv4 header begins, counted from 1; nil when it has none.  (What other dissectors
-- have read of a frame is there for this one only while they show it.)
local function ip_offset(pinfo, bytes)
  local source, destination = address_bytes(pinfo.net_src), address_bytes(pinfo.net_dst)
  local at = source and destination and bytes:find(source .. destination, 1, true)
  return at and at > 12 and math.floor(bytes:byte(at - 12) / 16) == 4 and at - 12 or nil
end

local function has_bit(number, bit)
  return math.floor(number / bit) % 2 == 1
end

-- The TCP segment of a frame, or nil.
local function read_segment(pinfo, bytes)
  local ip = ip_offset(pinfo, bytes)
  if not ip or bytes:byte(ip + 9) ~= 6 or number_at(bytes, ip + 6, 2) % 16384 ~= 0 then
    return nil
  end
  local tcp = ip + bytes:byte(ip) % 16 * 4
  if #bytes < tcp + 19 then
    return nil
  end
  -- Where the adapter cuts packets, a large one has no length of its own.
  local length = number_at(bytes, ip + 2, 2)
  local last = length > 0 and math.min(#bytes, ip + length - 1) or #bytes
  local flags = bytes:byte(tcp + 13)
  local from_scanner = number_at(bytes, tcp + 2, 2) == PORT
  local source = tostring(pinfo.net_src) .. ":" .. number_at(bytes, tcp, 2)
  local destination = tostring(pinfo.net_dst) .. ":" .. number_at(bytes, tcp + 2, 2)
  return {
    frame = pinfo.number, time = pinfo.abs_ts, sequence = number_at(bytes, tcp + 4, 4),
    fin = has_bit(flags, 1), syn = has_bit(flags, 2), reset = has_bit(flags, 4),
    from_scanner = from_scanner, pc = from_scanner and destination or source,
    ends = from_scanner and source .. " " .. destination or destination .. " " .. source,
    bytes = bytes:sub(tcp + math.floor(bytes:byte(tcp + 12) / 16) * 4, last),
  }
end

-- ---- Showing messages ------------------------------------------------------------------------------

-- The rule of a message once all has been seen that could change it.
local function final_rule(item, all_seen)
  local outcome = item.rule and rules[item.rule].outcome
  local waits = all_seen and item.connection and not item.answer
  if waits and outcome == "accepted" and item.connection.from_pc.next then
    local by = item.connection.ended_by
    return "no-answer", by and by .. " ended the connection first" or item.detail
  end
  if waits and (outcome == "accepted" or outcome == "refused") then
    return item.rule, item.detail .. (item.detail == "" and "" or "; ") ..
      (item.connection.from_pc.next and "no answer was seen" or
        "nothing that the PC sent is in the capture")
  end
  return item.rule, item.detail
end

-- A connection beside the main one has a single message, and is closed with what would be dropped.
local function outcome_of(item, rule)
  local outcome = rules[rule].outcome
  return item.on_extra and outcome == "dropped" and "closed" or outcome
end

local function show_rule(tree, item, rule, detail)
  local row = rules[rule]
  local outcome = outcome_of(item, rule) .. (row.status == "" and "" or " " .. row.status)
  tree:add(fields.rule, rule):set_generated()
  tree:add(fields.outcome, outcome):set_generated()
  if detail ~= "" then
    tree:add(fields.detail, detail):set_generated()
  end
  tree:add_proto_expert_info(row.expert, outcome .. ", " .. rule .. ": " .. row.sentence ..
    (detail == "" and "" or " (" .. detail .. ")"))
end

local function describe(item)
  local head = item.head
  if item.kind == "connection" then
    return "connection"
  elseif item.dropped then
    return "no whole message"
  elseif item.kind == "answer" then
    return "answer '" .. item.uid .. "', " .. item.status ..
      (item.status_out and " " .. item.status_out or "")
  elseif item.kind == "data" then
    return string.format("data '%s' for '%s', %d bytes", item.uid,
      header(head, "x-parent-uid") or "", #item.bytes - head.length)
  end
  local subevent = header(head, "x-subevent")
  local text = (head.is_response and "response" or subevent or "request") .. " '" .. item.uid .. "'"
  local parent = header(head, "x-parent-uid")
  local product = find_element(item.bytes:sub(head.length + 1), "ProductNameIn")
  return text .. (parent and " of '" .. parent .. "'" or "") ..
    (product and ", product '" .. product .. "'" or "")
end

local function show_head(tree, range, head)
  if head.start_line then
    tree:add(fields.start_line, range(0, #head.start_line), head.start_line)
  end
  for _, line in ipairs(head.headers) do
    local own = fields.header
    local text = line.name .. ": " .. line.value
    for _, known in ipairs(HEADERS) do
      if known[1]:lower() == line.name:lower() then
        own = fields[known[2]]
        text = line.value
      end
    end
    local item = tree:add(own, range(line.offset, line.size), text)
    if own == fields.status and STATUS_CODES[text] then
      item:append_text(" (" .. STATUS_CODES[text] .. ")")
    end
  end
end

local function show_body(tree, range, item)
  local body = item.bytes:sub(item.head.length + 1)
  local shown = {}
  for _, elements in ipairs({SETTINGS_ELEMENTS, ID_ELEMENTS, {{"StatusOut", "status_out"}}}) do
    for _, element in ipairs(elements) do
      local text, offset = find_element(body, element[1])
      if text and not shown[element[1]] then
        shown[element[1]] = true
        tree:add(fields[element[2]], range(item.head.length + offset, #text), text)
      end
    end
  end
  if item.kind == "data" and body ~= "" then
    tree:add(fields.data, range(item.head.length, #body))
  end
end

local function show_item(item, pinfo, root, all_seen)
  local bytes = ByteArray.new(item.bytes, true)
  local range = bytes:len() > 0 and bytes:tvb("Event message") or nil
  local tree = range and root:add(zvqrn, range(), "Event message: " .. describe(item)) or
    root:add(zvqrn, "Event protocol: " .. describe(item))
  tree:add(fields.kind, item.kind):set_generated()
  if range and item.head then
    show_head(tree, range, item.head)
    if item.head.length then
      show_body(tree, range, item)
    end
  end
  if item.answer then
    tree:add(fields.answer_in, item.answer.frame):set_generated()
  end
  if item.request then
    tree:add(fields.request_in, item.request.frame):set_generated()
    tree:add(fields.time, item.time - item.request.time):set_generated()
  end
  if item.start then
    tree:add(fields.start_in, item.start.frame):set_generated()
  end
  local text = describe(item)
  local rule, detail = final_rule(item, all_seen)
  if rule then
    show_rule(tree, item, rule, detail)
    text = text .. (rule == "accepted" and "" or " [" .. outcome_of(item, rule) .. ": " .. rule .. "]")
  end
  pinfo.cols.protocol = "ZVQRN"
  return text
end

-- What is still held when no more is to come, where its last bytes came.
local function unfinished_item(pinfo)
  local connection = connection_of_frame[pinfo.number]
  local side = connection and connection.from_scanner
  if not side or side.held == "" or side.last_frame ~= pinfo.number then
    return nil
  end
  local head = read_head(side.held)
  if head.state ~= "complete" then
    return dropped_item(connection, why_unfinished(side.held), head)
  end
  local body = side.held:sub(head.length + 1)
  local rule, detail = judge_message(head, body, connection.is_main, true)
  return {
    kind = "request", time = side.last_time, bytes = side.held, head = head, rule = rule,
    detail = detail, uid = header(head, "x-uid") or "", connection = connection,
  }
end

-- A connection that came to nothing, where it was asked for.
local function connection_item(pinfo)
  local connection = connection_of_frame[pinfo.number]
  if not connection or connection.opened_in ~= pinfo.number then
    return nil
  end
  local rule
  if connection.refused then
    rule = "not-listening"
  elseif connection.begun and not connection.accepted then
    rule = "no-connection"
  elseif not connection.is_main and not connection.judged and connection.from_pc.ended and
      connection.others_open >= EXTRA_PLACES then
    rule = "places-taken"
  end
  return rule and {kind = "connection", time = 0, bytes = "", rule = rule, detail = "", uid = ""}
end

-- Makes the protocol known to Wireshark; what is in a frame is shown below.
function zvqrn.dissector(tvb)
  return tvb:len()
end

-- ---- Searches --------------------------------------------------------------------------------------

local function counts_as_utf8(text)
  local left = 0
  for at = 1, #text do
    local byte = text:byte(at)
    local continues = byte >= 0x80 and byte < 0xC0
    if continues ~= (left > 0) or byte >= 0xF8 then
      return false
    end
    if continues then
      left = left - 1
    elseif byte >= 0xC0 then
      left = byte >= 0xF0 and 3 or byte >= 0xE0 and 2 or 1
    end
  end
  return left == 0
end

local function is_one_name(list)
  local at, size = 1, 0
  while at <= #list do
    local letter = list:sub(at, at)
    if letter == "," then
      if at < #list then
        return false
      end
      break
    end
    if letter == "\\" then
      at = at + 1
      if at > #list or list:byte(at) >= 0x80 then
        return false
      end
    end
    size = size + 1
    at = at + 1
  end
  return size > 0 and counts_as_utf8(list)
end

-- A counted text, and the place behind it; nil when the message ends before.
local function read_text(bytes, at)
  if #bytes < at + 1 then
    return nil
  end
  local high, low = bytes:byte(at, at + 1)
  local size = high * 256 + low
  if #bytes < at + 1 + size then
    return nil
  end
  return bytes:sub(at + 2, at + 1 + size), at + 2 + size
end

local function judge_request_body(slp, bytes, at, language)
  if #bytes - at + 1 < 10 then
    return "slp-body"
  end
  local texts = {}
  for i = 1, 4 do
    texts[i], at = read_text(bytes, at)
    if not at then
      return "slp-body"
    end
  end
  slp.responders = texts[1]
  slp.scope = texts[3]
  if up_to_nul(texts[2]):lower() ~= SERVICE_TYPE:lower() then
    return "service-type"
  end
  local scope = up_to_nul(slp.scope)
  local is_default = scope:lower() == "default"
  if not is_default and not is_one_name(scope) then
    return "scope-list"
  end
  if language == "" then
    return "language-tag"
  end
  return is_default and "answerable" or "scope-asked"
end

local function read_slp(bytes)
  local slp = {scope = "", responders = "", xid = 0, attributes = ""}
  if #bytes > DATAGRAM_LIMIT and bytes:byte(2) ~= 7 then
    slp.rule = "datagram-size"
    return slp
  end
  slp.rule = "slp-header"
  if #bytes < 18 then
    return slp
  end
  local kind = bytes:byte(2)
  slp.xid = number_at(bytes, 11, 2)
  local language, at = read_text(bytes, 13)
  if kind < 1 or kind > 11 or number_at(bytes, 3, 3) ~= #bytes or not language or
      number_at(bytes, 8, 3) + 7 > #bytes then
    return slp
  end
  if kind == 7 then
    slp.is_reply = true
    if #bytes >= at + 1 and number_at(bytes, at, 2) == 0 then
      slp.attributes = read_text(bytes, at + 2) or ""
    end
  elseif kind ~= 6 then
    slp.rule = "slp-function"
  else
    slp.rule = judge_request_body(slp, bytes, at, language)
  end
  return slp
end

local function is_group(address)
  local first = tonumber(address:match("^(%d+)%."))
  return first ~= nil and first >= 224 and first <= 239
end

local function search_name(address, slp)
  return tostring(address) .. " " .. slp.xid
end

local function take_reply(pinfo, slp)
  local address = slp.attributes:match("%(IPAddress=([%d.]+)%)")
  if address then
    announced[address] = true
  end
  local asked = last_search[search_name(pinfo.dst, slp)]
  if asked and pinfo.abs_ts - asked.time <= REPLY_PATIENCE then
    table.insert(asked.replies, slp)
    slp.request = asked
  end
end

-- True while the reply to a search may be in progress, and a repeat of it is dropped.  The host's
-- filter may take any time before the first datagram; a search that it declines is not repeated
-- with more success, so a late reply is to the first one.
local function may_be_in_progress(slp, now)
  if slp.replies[1] then
    return now - slp.replies[1].time < REPLY_TIME
  end
  return now - slp.time < (slp.rule == "scope-asked" and REPLY_PATIENCE or REPLY_TIME)
end

local function take_search(pinfo, slp)
  slp.replies = {}
  slp.from = tostring(pinfo.src)
  slp.to = tostring(pinfo.dst)
  slp.detail = ""
  local name = search_name(pinfo.src, slp)
  -- The library looks at the language tag last.
  local in_order = rules[slp.rule].outcome == "accepted"
  if in_order or slp.rule == "language-tag" then
    local place = is_group(slp.to) and "group" or slp.to
    local earlier = search_in_order[name .. " " .. (place == "group" and "any" or place)]
    local to_group = search_in_order[name .. " group"]
    if to_group and (not earlier or to_group.frame > earlier.frame) then
      earlier = to_group
    end
    if earlier and may_be_in_progress(earlier, slp.time) then
      slp.repeats = earlier
      slp.own_rule = slp.rule
      slp.rule = "repeated"
      slp.detail = "first seen in frame " .. earlier.frame
      return
    end
    if in_order then
      search_in_order[name .. " " .. place] = slp
      search_in_order[name .. " any"] = slp
    end
  end
  last_search[name] = slp
end

local function known_responder(slp)
  local list = "," .. up_to_nul(slp.responders) .. ","
  if not is_group(slp.to) then
    return list:find("," .. slp.to .. ",", 1, true) and slp.to
  end
  for address in pairs(announced) do
    if list:find("," .. address .. ",", 1, true) then
      return address
    end
  end
  return nil
end

local function final_search_rule(slp, all_seen)
  local own = slp.rule
  if slp.repeats and all_seen and #slp.repeats.replies == 0 then
    own = slp.own_rule
  end
  local in_order = rules[own].outcome == "accepted"
  if #slp.replies > 0 then
    return in_order and "answered" or "unexpected",
      in_order and "" or "the rule " .. slp.rule .. " forbids it"
  end
  local may_be_answered = in_order or own == "repeated" or own == "language-tag"
  local responder = all_seen and may_be_answered and known_responder(slp)
  if responder then
    return "previous-responder", responder
  end
  if not in_order or not all_seen then
    return own, own == slp.rule and slp.detail or ""
  end
  return own == "scope-asked" and "scope-unserved" or "no-reply", ""
end

-- Wireshark's own, by the port that SLP has elsewhere.
local slp_dissector = DissectorTable.get("udp.port"):get_dissector(427)

-- SLP's dissector gives up a packet that it finds malformed (a name beyond ASCII too), with an error.
function search.dissector(tvb, pinfo, root)
  if pinfo.dst_port == PORT and not pinfo.visited then
    datagram_of_frame[pinfo.number] = tvb:raw()
  end
  pcall(slp_dissector.call, slp_dissector, tvb, pinfo, root)
  return tvb:len()
end

-- True for what a machine that captures on all its adapters sees again after it has sent it to
-- itself; such frames begin with the packet's way, in one of two forms.
local function is_second_sight(pinfo, frame, bytes)
  local SENT = 4
  local ip = ip_offset(pinfo, frame)
  local way = ip == 17 and number_at(frame, 1, 2) or ip == 21 and frame:byte(11)
  local datagram = tostring(pinfo.net_src) .. " " .. tostring(pinfo.net_dst) .. " " .. bytes
  if way == SENT then
    last_sent = datagram
  end
  return way and way ~= SENT and datagram == last_sent
end

-- The library hears IPv4; and a message about an error quotes a datagram, which did not come again.
local function carries_datagram(pinfo, frame)
  local ip = ip_offset(pinfo, frame)
  return ip and frame:byte(ip + 9) == 17
end

local function take_datagram(pinfo, frame)
  local bytes = datagram_of_frame[pinfo.number]
  datagram_of_frame[pinfo.number] = nil
  if not bytes or not carries_datagram(pinfo, frame) or is_second_sight(pinfo, frame, bytes) then
    return
  end
  local slp = read_slp(bytes)
  slp.frame = pinfo.number
  slp.time = pinfo.abs_ts
  searches_of_frame[pinfo.number] = slp
  if slp.is_reply then
    take_reply(pinfo, slp)
  else
    take_search(pinfo, slp)
  end
end

local function show_search(slp, pinfo, root)
  local tree = root:add(search, slp.is_reply and "Reply of a PC" or "Search for a PC")
  tree:add(search_fields.xid, slp.xid):set_generated()
  if slp.is_reply then
    if slp.request then
      tree:add(search_fields.request_in, slp.request.frame):set_generated()
      tree:add(search_fields.time, slp.time - slp.request.time):set_generated()
    end
    return
  end
  tree:add(search_fields.scope, slp.scope):set_generated()
  tree:add(search_fields.replies, #slp.replies):set_generated()
  if slp.replies[1] then
    tree:add(search_fields.reply_in, slp.replies[1].frame):set_generated()
  end
  local rule, detail = final_search_rule(slp, pinfo.visited)
  show_rule(tree, slp, rule, detail)
  if rules[rule].outcome ~= "accepted" then
    pinfo.cols.info:append(" [" .. rules[rule].outcome .. ": " .. rule .. "]")
  end
end

-- Comes after all other dissectors of a frame, and so sees the segments without bytes too.
function watch.dissector(tvb, pinfo, root)
  if pinfo.dst_port ~= PORT and pinfo.src_port ~= PORT then
    return
  end
  if not pinfo.visited then
    local frame = tvb:raw()
    local segment = read_segment(pinfo, frame)
    if segment then
      take_segment(segment)
    else
      take_datagram(pinfo, frame)
    end
  end
  if searches_of_frame[pinfo.number] then
    show_search(searches_of_frame[pinfo.number], pinfo, root)
  end
  local texts = {}
  for _, item in ipairs(items_of_frame[pinfo.number] or {}) do
    table.insert(texts, show_item(item, pinfo, root, pinfo.visited))
  end
  if pinfo.visited then
    local item = unfinished_item(pinfo) or connection_item(pinfo)
    if item then
      table.insert(texts, show_item(item, pinfo, root, true))
    end
  end
  if #texts > 0 then
    pinfo.cols.info = table.concat(texts, "; ")
  end
end

zvqrn.init = forget
DissectorTable.get("tcp.port"):add(PORT, zvqrn)
DissectorTable.get("udp.port"):add(PORT, search)
register_postdissector(watch)
