-- Wireshark dissector for the datagrams of v2x_spat_convert: reports and heartbeats of a signal learner, frames of a
-- GA/T 1743 controller, SPAT records, requests and replies of the stack application, log control, and the DDS samples
-- in a capture of v2x_spat_ctl. docs/interfaces.md describes the bytes. Times are in seconds.
--
-- Install: copy this file to a plugin folder of Wireshark (Help, About, Folders), or run
-- tshark -X lua_script:v2x_spat.lua -r FILE.pcap. The dissector recognizes datagrams with valid start bytes on any UDP
-- port, and each datagram to a port of the preferences.

local bit = bit32 or bit
local proto = Proto("v2x_spat", "V2X SPAT converter")

local LIGHTS = {
  [0] = "unavailable", "dark", "flashing red", "red", "flashing green", "permissive green", "protected green", "yellow",
  "flashing yellow",
}
local RED, GREEN, YELLOW = 3, 5, 7
local COLOURS = { "green", "red", "yellow" }
local REPORT, HEARTBEAT = 0x10, 0x03
local LEARNER_TYPES = { [REPORT] = "phase report", [HEARTBEAT] = "heartbeat" }
local TO_STACK, FROM_STACK, LOG_REQUEST, LOG_ANSWER = 20, 21, 50, 51
local COMMANDS = {
  [TO_STACK] = "to the stack application", [FROM_STACK] = "from the stack application",
  [LOG_REQUEST] = "log control request", [LOG_ANSWER] = "log control answer",
}
local RECORD, MESSAGES = 1, 11
local DATA_TYPES = { [RECORD] = "SPAT record", [MESSAGES] = "encoded messages" }
local MODES = { [0] = "no timing", "counting down" }
local LEVELS = { [0] = "undo", "fatal", "error", "warn", "info", "debug", "verbose", "trace" }
local LOG_COMMANDS = { "report all levels", "set a level" }
local DIRECTIONS = { [0] = "received", "sent" }
local SERVICES = { [0] = "controller's adapter", [2] = "SPAT converter", [5] = "communication software" }
local RUN_STATES = { [0] = "no frame yet", "available", "not available" }
local LAMP_TYPES = { "straight on", "left", "right", [8] = "pedestrians", [9] = "pedestrians" }
-- Device phase of a lamp type on the approaches from north, east, south and west.
local PHASES = {
  { 1, 2, 3, 4 }, { 7, 8, 9, 10 }, { 13, 14, 15, 16 }, [8] = { 5, 6, 11, 12 }, [9] = { 17, 18, 19, 20 },
}
local CONTROL_TYPE, OBJECT_ID = 0x87, 0x0103
local MAX_PACK, MAX_ITEMS, MAX_LINKS, MIN_FRAME, MAX_FRAME = 20480, 64, 11, 31, 5120

-- First byte of an encoded message: the alternative in the upper half.
local MESSAGE_TYPES = {}
do
  local names = { [0] = "bsmFrame", "mapFrame", "rsmFrame", "spatFrame", "rsiFrame" }
  for byte = 0, 255 do
    MESSAGE_TYPES[byte] = names[math.floor(byte / 16)] or byte == 0x80 and "msgFrameExt"
      or byte > 0x80 and "newer edition" or nil
  end
end

-- ---- fields and expert items

local function make_expert(filter, title, kind, severity)
  return ProtoExpert.new("v2x_spat." .. filter, title, expert.group[kind], expert.severity[severity])
end
local EXPERTS = {
  start = make_expert("start.invalid", "Invalid start bytes", "MALFORMED", "ERROR"),
  length = make_expert("length.invalid", "Invalid length", "MALFORMED", "ERROR"),
  count = make_expert("count.invalid", "Invalid count", "MALFORMED", "WARN"),
  type = make_expert("type.unknown", "Unknown type", "UNDECODED", "WARN"),
  crc = make_expert("crc.bad", "Bad CRC", "CHECKSUM", "ERROR"),
  escape = make_expert("frame.escape.invalid", "Invalid escape", "PROTOCOL", "WARN"),
  part = make_expert("frame.incomplete", "Incomplete frame", "REASSEMBLE", "NOTE"),
}
proto.experts = EXPERTS

local all_fields = {}
local function register(field)
  all_fields[#all_fields + 1] = field
  return field
end

-- Describes a field of a record: `name` is the last word of the filter name, `size` is in bytes. `read` returns the
-- value of a range, and `show` converts this value for display. The value `absent` is displayed as the text `meaning`.
local function make_field(filter, title, size, field, read, show)
  return {
    name = filter:match("[^.]+$"), title = title, size = size, field = register(field), read = read,
    show = show or function(value) return value end,
  }
end
local function uint(filter, title, size, values, display)
  local field = ProtoField["uint" .. 8 * size]("v2x_spat." .. filter, title, display or base.DEC, values)
  return make_field(filter, title, size, field, function(range) return range:le_uint() end)
end
local function int(filter, title, size, values)
  local field = ProtoField["int" .. 8 * size]("v2x_spat." .. filter, title, base.DEC, values)
  return make_field(filter, title, size, field, function(range) return range:le_int() end)
end
local function big_int(filter, title)
  return make_field(filter, title, 2, ProtoField.int16("v2x_spat." .. filter, title),
    function(range) return range:int() end)
end
local function bytes(filter, title, size)
  local field = make_field(filter, title, size, ProtoField.bytes("v2x_spat." .. filter, title),
    function(range) return range:raw() end)
  field.is_raw = true
  return field
end
local function float(filter, title)
  return make_field(filter, title, 4, ProtoField.float("v2x_spat." .. filter, title),
    function(range) return range:le_float() end)
end
local function printable(raw)
  return (raw:match("^[^\0]*"):gsub("[^\32-\126]", "?"))
end
local function text(filter, title, size)
  return make_field(filter, title, size, ProtoField.string("v2x_spat." .. filter, title),
    function(range) return printable(range:raw()) end)
end
-- `scale` is the number of units in a second.
local function seconds(filter, title, size, scale, absent, meaning)
  local field = make_field(filter, title, size, ProtoField.double("v2x_spat." .. filter, title .. " (s)"),
    function(range) return range:le_uint() end, function(value) return value / scale end)
  field.absent, field.meaning = absent, meaning
  return field
end
-- Microseconds since 1970-01-01 UTC.
local function time(filter, title)
  local field = make_field(filter, title, 8, ProtoField.absolute_time("v2x_spat." .. filter, title, base.UTC),
    function(range) return range:le_uint64():tonumber() end,
    function(value) return NSTime.new(math.floor(value / 1e6), math.floor(value % 1e6) * 1000) end)
  field.absent, field.meaning = 0, "none"
  return field
end
local function group(filter, title)
  return register(ProtoField.none("v2x_spat." .. filter, title))
end

local LEARNER_HEAD = {
  bytes("learner.start", "Start bytes", 2),
  uint("learner.type", "Type", 1, LEARNER_TYPES, base.HEX),
  big_int("learner.length", "Body length"),
}
local LEARNER_BODY = {
  bytes("learner.unused", "Unused", 1), uint("learner.count", "Phase count", 1), bytes("learner.unused2", "Unused", 1),
}
local LEARNER_PHASE = {
  uint("learner.phase.id", "Device phase", 1), uint("learner.phase.colour", "Colour", 1, COLOURS),
  seconds("learner.phase.left", "Time left", 1, 1, 255, "unknown"), bytes("learner.phase.unused", "Unused", 4),
}
local FRAME_HEAD = {
  uint("frame.link_code", "Link code", 2), bytes("frame.sender", "Sender", 7), bytes("frame.receiver", "Receiver", 7),
  make_field("frame.time", "Time", 6, ProtoField.absolute_time("v2x_spat.frame.time", "Time", base.UTC), function(range)
    return NSTime.new(range(0, 4):le_uint(), range(4, 2):le_uint() * 1000000)
  end),
  uint("frame.ttl", "Time to live", 1), uint("frame.version", "Version", 1),
  uint("frame.control", "Control type", 1, nil, base.HEX), uint("frame.object", "Object id", 2, nil, base.HEX),
}
local FRAME_BODY = {
  bytes("frame.sign", "Sign id, reserved", 4), uint("frame.content_length", "Content length", 2),
  float("frame.longitude", "Longitude"), float("frame.latitude", "Latitude"), uint("frame.elevation", "Elevation", 2),
  uint("frame.links", "Number of entry links", 1),
}
local FRAME_LINK = {
  uint("frame.link.angle", "Approach angle", 2), uint("frame.link.groups", "Number of lamp groups", 1),
}
local FRAME_GROUP = {
  uint("frame.group.id", "Lamp group id", 1), uint("frame.group.type", "Lamp type", 1, LAMP_TYPES),
  uint("frame.group.colour", "Colour bits", 1, nil, base.HEX),
  seconds("frame.group.left", "Time left", 1, 1, 0, "unknown"),
}
local CRC = { uint("crc", "CRC", 2, nil, base.HEX) }
local STACK_HEAD = {
  bytes("head.flag", "Start bytes", 2), uint("head.inc", "Increment", 1), uint("head.direction", "Direction", 1),
  time("head.time", "Send time"), uint("head.command", "Command", 2, COMMANDS),
  uint("head.length", "Bytes after the header", 2), uint("head.checksum", "Checksum (unused)", 1),
}
local STACK_BLOCK = {
  int("block.type", "Data type", 4, DATA_TYPES), int("block.number", "Number", 4),
  uint("block.length", "Data length", 2), uint("block.checksum", "Checksum (unused)", 1),
}
local moy = uint("record.moy", "Minute of the year", 4)
moy.absent, moy.meaning = 0xFFFFFFFF, "absent"
local RECORD_HEAD = {
  uint("record.intersection", "Intersection", 4), uint("record.status", "Status", 2, nil, base.HEX), moy,
  seconds("record.second", "Second of the minute", 2, 1000, 0xFFFF, "absent"),
  int("record.phases", "Number of phases", 1),
}
local RECORD_PHASE = {
  uint("record.phase.id", "SPAT phase", 1), uint("record.phase.states", "Number of states", 1),
}
local RECORD_STATE = {
  uint("record.phase.mode", "Mode", 1, MODES), uint("record.phase.light", "Light", 1, LIGHTS),
  seconds("record.phase.start", "Start", 2, 10), seconds("record.phase.end", "Likely end", 2, 10, 36001, "unknown"),
  seconds("record.phase.max_end", "Latest end", 2, 1, 0xFFFF, "absent"),
  seconds("record.phase.min_end", "Earliest end", 2, 1, 0xFFFF, "absent"),
  seconds("record.phase.next_start", "Next start", 2, 1, 0xFFFF, "absent"),
  seconds("record.phase.next_duration", "Next duration", 2, 1, 0xFFFF, "absent"),
  uint("record.phase.confidence", "Time confidence", 1),
}
RECORD_STATE[9].absent, RECORD_STATE[9].meaning = 0xFF, "absent"
local REPLY_ITEM = { uint("reply.item.length", "Length", 2) }
local LOG_HEAD = {
  uint("log.command", "Command", 1, LOG_COMMANDS), int("log.result", "Result", 2), int("log.length", "Data length", 2),
}
local LOG_ENTRY = { text("log.tag", "Tag", 8), int("log.level", "Level", 2, LEVELS) }
local SAMPLE_HEAD = {
  text("sample.magic", "Magic", 6), uint("sample.version", "Version", 1),
  uint("sample.topic_length", "Topic length", 1),
}
local SAMPLE_DIRECTION = { uint("sample.direction", "Direction", 1, DIRECTIONS) }
local STATUS_RECORD = {
  uint("status.service", "Service", 1, SERVICES), uint("status.run", "Run status", 1, RUN_STATES),
  uint("status.sent", "Packets sent", 4), time("status.sent_time", "Last packet sent"),
  uint("status.received", "Packets received", 4), time("status.received_time", "Last packet received"),
}

local GROUPS = {
  report_phase = group("learner.phase", "Phase"), frame = group("frame", "Light-status frame"),
  part = group("frame.part", "Part of a frame"), link = group("frame.link", "Entry link"),
  lamp = group("frame.group", "Lamp group"), record = group("record", "SPAT record"),
  phase = group("record.phase", "Phase"), request = group("request", "Request for SPAT"),
  reply = group("reply", "Reply with SPAT"), item = group("reply.item", "Item"), log = group("log", "Log control"),
  level = group("log.entry", "Level"), learner = group("learner", "Signal learner"),
  sample = group("sample", "DDS sample"),
}
local EXTRA = {
  rest = register(ProtoField.bytes("v2x_spat.rest", "Rest")),
  body = register(ProtoField.bytes("v2x_spat.learner.body", "Body")),
  phase = register(ProtoField.uint8("v2x_spat.frame.group.phase", "Device phase")),
  light = register(ProtoField.uint8("v2x_spat.frame.group.light", "Light", base.DEC, LIGHTS)),
  crc_status = register(ProtoField.uint8("v2x_spat.crc.status", "CRC status", base.DEC, { [0] = "Bad", "Good" })),
  region = register(ProtoField.uint16("v2x_spat.record.region", "Region")),
  node = register(ProtoField.uint16("v2x_spat.record.node", "Node")),
  message = register(ProtoField.uint8("v2x_spat.reply.item.message", "Message", base.HEX, MESSAGE_TYPES)),
  encoded = register(ProtoField.bytes("v2x_spat.reply.item.frame", "Encoded message")),
  topic = register(ProtoField.string("v2x_spat.sample.topic", "Topic")),
  octets = register(ProtoField.bytes("v2x_spat.sample.octets", "Octets")),
  document = register(ProtoField.string("v2x_spat.sample.document", "SPAT document")),
}
proto.fields = all_fields

-- ---- reading

local Cursor = {}
Cursor.__index = Cursor
local function new_cursor(tvb, stop)
  return setmetatable({ tvb = tvb, at = 0, stop = stop or tvb:len() }, Cursor)
end
function Cursor:left()
  return self.stop - self.at
end
-- Requires size <= left().
function Cursor:take(size)
  local range = self.tvb(self.at, size)
  self.at = self.at + size
  return range
end

local first_problem -- of the present datagram, for the info column
local function report(tree, kind, problem)
  tree:add_proto_expert_info(EXPERTS[kind], problem)
  first_problem = first_problem or problem
end

-- Adds a tree for the rest of the data.
local function add_tree(cursor, tree, field)
  return tree:add(field, cursor.tvb(cursor.at, cursor:left()))
end

-- Adds the fields and returns their values by name; an absent value is nil. Returns nil if the data is too short.
local function add_fields(cursor, tree, layout)
  local values = {}
  for _, field in ipairs(layout) do
    if cursor:left() < field.size then
      report(tree, "length", ("the data ends before the end of \"%s\""):format(field.title))
      return nil
    end
    local range = cursor:take(field.size)
    local value = field.read(range)
    if value == field.absent then
      tree:add(range, field.title .. ": " .. field.meaning)
    else
      values[field.name] = field.is_raw and value or field.show(value)
      if field.is_raw then
        tree:add(field.field, range)
      else
        tree:add(field.field, range, values[field.name])
      end
    end
  end
  return values
end

local function add_rest(cursor, tree)
  if cursor:left() > 0 then
    tree:add(EXTRA.rest, cursor:take(cursor:left()))
  end
end

-- Reports bytes after the last counted element.
local function check_end(cursor, tree, what)
  if cursor:left() > 0 then
    report(tree, "count", ("%d bytes after the last %s"):format(cursor:left(), what))
    add_rest(cursor, tree)
  end
end

-- Calls add(tree of the element, number) for `count` elements. `add` returns the text of the element, or nil to stop.
-- Reports a count that is too high for the data.
local function add_elements(cursor, tree, field, count, smallest, what, add)
  for number = 1, count do
    if cursor:left() < smallest then
      report(tree, "count", ("%d %ss counted, %d fit"):format(count, what, number - 1))
      break
    end
    local from = cursor.at
    local element = add_tree(cursor, tree, field)
    local label = add(element, number)
    element:set_len(cursor.at - from)
    if not label then
      break
    end
    element:set_text(label)
  end
end

local function format_light(phase, light, left)
  return ("%d %s"):format(phase, light or "unavailable") .. (left and (" %g s"):format(left) or "")
end

local MAX_LISTED = 8
local function join(texts)
  return table.concat(texts, ", ", 1, math.min(#texts, MAX_LISTED)) .. (#texts > MAX_LISTED and ", …" or "")
end

-- ---- signal learner. Each function dissect_ returns the text of the info column.

local function dissect_report(cursor, tree)
  local body = add_fields(cursor, tree, LEARNER_BODY)
  local lights = {}
  if body then
    add_elements(cursor, tree, GROUPS.report_phase, body.count, 7, "phase", function(element)
      local phase = add_fields(cursor, element, LEARNER_PHASE)
      lights[#lights + 1] = format_light(phase.id, phase.left and COLOURS[phase.colour], phase.left)
      return "Phase " .. lights[#lights]
    end)
    check_end(cursor, tree, "phase")
  end
  return "report: " .. join(lights)
end

local function dissect_learner(cursor, datagram)
  local tree = add_tree(cursor, datagram, GROUPS.learner)
  local total = cursor.tvb:reported_len()
  local head = add_fields(cursor, tree, LEARNER_HEAD)
  if head and head.start ~= "\xFE\xFE" then
    report(tree, "start", "start bytes are not FE FE")
  elseif head and head.length ~= total - 5 then
    report(tree, "length", ("body length is %d, not %d"):format(head.length, total - 5))
  elseif head and head.type == REPORT then
    return dissect_report(cursor, tree)
  elseif head and head.type ~= HEARTBEAT then
    report(tree, "type", ("type 0x%02X"):format(head.type))
  end
  if cursor:left() > 0 then
    tree:add(EXTRA.body, cursor:take(cursor:left()))
  end
  return head and LEARNER_TYPES[head.type] or "learner datagram"
end

-- ---- GA/T 1743 controller

-- CRC-16/MODBUS
local function compute_crc(raw)
  local crc = 0xFFFF
  for at = 1, #raw do
    crc = bit.bxor(crc, raw:byte(at))
    for _ = 1, 8 do
      crc = bit.bxor(bit.rshift(crc, 1), crc % 2 * 0xA001)
    end
  end
  return crc
end

local function unescape(raw)
  return (raw:gsub("\xDB([\xDC\xDD])", { ["\xDC"] = "\xC0", ["\xDD"] = "\xDB" }))
end

local function is_crc_right(body)
  return #body > 2 and compute_crc(body:sub(1, -3)) == body:byte(-2) + 256 * body:byte(-1)
end

-- Returns the last byte of the part of the stream that begins at byte `at`, and true if this part is a whole frame.
-- A delimiter outside a frame closes a frame of another datagram if it is the last byte or precedes another delimiter.
local function find_part(raw, at)
  local delimiter = raw:find("\xC0", at, true)
  if not delimiter then
    return #raw, false
  end
  local is_closing = delimiter == #raw or raw:byte(delimiter + 1) == 0xC0
  if delimiter > at or is_closing then
    return is_closing and delimiter or delimiter - 1, false
  end
  local close = raw:find("\xC0", at + 1, true)
  return close or #raw, close ~= nil
end

local function find_device_phase(lamp_type, angle)
  local phases = PHASES[lamp_type]
  return phases and phases[math.floor((angle + 45) % 360 / 90) + 1]
end

local function find_light(colour)
  return bit.band(colour, 0x02) ~= 0 and RED or bit.band(colour, 0x08) ~= 0 and YELLOW
    or bit.band(colour, 0x20) ~= 0 and GREEN or 0
end

local function add_lamp_group(cursor, element, angle, lights)
  local lamp = add_fields(cursor, element, FRAME_GROUP)
  local phase = find_device_phase(lamp.type, angle)
  local light = lamp.left and find_light(lamp.colour) or 0
  element:add(EXTRA.light, light):set_generated()
  if not phase then
    return ("Lamp group %d: type %d, no phase"):format(lamp.id, lamp.type)
  end
  element:add(EXTRA.phase, phase):set_generated()
  lights[#lights + 1] = format_light(phase, light ~= 0 and LIGHTS[light]:gsub("^permissive ", ""), lamp.left)
  return ("Lamp group %d: phase %s"):format(lamp.id, lights[#lights])
end

local function add_links(cursor, tree, count, lights)
  add_elements(cursor, tree, GROUPS.link, count, 3, "link", function(element, number)
    local link = add_fields(cursor, element, FRAME_LINK)
    if math.max(count, link.groups) > MAX_LINKS then
      report(element, "count", ("more than %d links or lamp groups"):format(MAX_LINKS))
    end
    add_elements(cursor, element, GROUPS.lamp, link.groups, 4, "lamp group", function(lamp)
      return add_lamp_group(cursor, lamp, link.angle, lights)
    end)
    return ("Entry link %d, %d degrees"):format(number, link.angle)
  end)
  check_end(cursor, tree, "link")
end

local function dissect_payload(cursor, tree)
  local lights = {}
  local head = add_fields(cursor, tree, FRAME_HEAD)
  if head and (head.control ~= CONTROL_TYPE or head.object ~= OBJECT_ID) then
    report(tree, "type", ("control type 0x%02X, object id 0x%04X"):format(head.control, head.object))
    add_rest(cursor, tree)
    return "frame of another type"
  end
  local body = head and add_fields(cursor, tree, FRAME_BODY)
  if body then
    add_links(cursor, tree, body.links, lights)
  end
  return "light status: " .. join(lights)
end

local function dissect_frame(range, tree)
  local raw = range:raw()
  local body = unescape(raw:sub(2, -2))
  local frame = tree:add(GROUPS.frame, range)
  if #raw < MIN_FRAME or #raw > MAX_FRAME then
    report(frame, "length", ("frame has %d bytes, not %d to %d"):format(#raw, MIN_FRAME, MAX_FRAME))
  end
  if raw:gsub("\xDB[\xDC\xDD]", ""):find("\xDB", 1, true) then
    report(frame, "escape", "DB without DC or DD")
  end
  if #body <= 2 then
    return "frame without payload"
  end
  local tvb = ByteArray.new(body, true):tvb("GA/T 1743 frame")
  local info = dissect_payload(new_cursor(tvb, #body - 2), frame)
  local checksum = new_cursor(tvb)
  checksum.at = #body - 2
  add_fields(checksum, frame, CRC)
  local is_right = is_crc_right(body)
  frame:add(EXTRA.crc_status, tvb(#body - 2, 2), is_right and 1 or 0):set_generated()
  if not is_right then
    report(frame, "crc", ("CRC is not 0x%04X"):format(compute_crc(body:sub(1, -3))))
  end
  return info
end

local function dissect_controller(cursor, tree)
  local raw = cursor.tvb():raw()
  local texts = {}
  while cursor:left() > 0 do
    local last, is_frame = find_part(raw, cursor.at + 1)
    local range = cursor:take(last - cursor.at)
    if is_frame then
      texts[#texts + 1] = dissect_frame(range, tree)
    else
      tree:add(GROUPS.part, range):add_proto_expert_info(EXPERTS.part,
        "part of a frame that continues in another datagram, or bytes outside a frame")
      texts[#texts + 1] = "part of a frame"
    end
  end
  return table.concat(texts, "; ")
end

-- ---- stack application and log tool

local function add_phase(cursor, element, lights)
  local phase = add_fields(cursor, element, RECORD_PHASE)
  local label
  for _ = 1, phase.states do
    local state = add_fields(cursor, element, RECORD_STATE)
    if not state then
      add_rest(cursor, element)
      break
    end
    label = label or format_light(phase.id, LIGHTS[state.light] or "light " .. state.light, state["end"])
  end
  lights[#lights + 1] = label
  return label and "Phase " .. label or "Empty entry"
end

local function dissect_record(cursor, datagram)
  local tree = add_tree(cursor, datagram, GROUPS.record)
  local record = add_fields(cursor, tree, RECORD_HEAD)
  if not record then
    return "record"
  end
  local region, node = math.floor(record.intersection / 65536), record.intersection % 65536
  tree:add(EXTRA.region, region):set_generated()
  tree:add(EXTRA.node, node):set_generated()
  local lights = {}
  add_elements(cursor, tree, GROUPS.phase, record.phases, 2, "phase", function(element)
    return add_phase(cursor, element, lights)
  end)
  check_end(cursor, tree, "phase")
  return ("record %d/%d: %s"):format(region, node, join(lights))
end

local function add_item(cursor, element, number)
  local item = add_fields(cursor, element, REPLY_ITEM)
  if not item then
    add_rest(cursor, element)
    return nil
  end
  if item.length > cursor:left() then
    report(element, "length", ("item %d has %d bytes, %d left"):format(number, item.length, cursor:left()))
    add_rest(cursor, element)
    return nil
  end
  if item.length == 0 then
    report(element, "length", ("item %d is empty"):format(number))
    return "empty"
  end
  local range = cursor:take(item.length)
  local first = range(0, 1):uint()
  element:add(EXTRA.message, range(0, 1))
  element:add(EXTRA.encoded, range)
  if not MESSAGE_TYPES[first] then
    report(element, "type", ("message begins with 0x%02X"):format(first))
  end
  return ("%s %d bytes"):format(MESSAGE_TYPES[first] or "invalid message", item.length)
end

local function dissect_reply(cursor, datagram, count)
  local tree = add_tree(cursor, datagram, GROUPS.reply)
  local items = {}
  add_elements(cursor, tree, GROUPS.item, count, 1, "item", function(element, number)
    items[number] = add_item(cursor, element, number)
    return items[number] and ("Item %d: %s"):format(number, items[number])
  end)
  check_end(cursor, tree, "item")
  if count > MAX_ITEMS then
    report(tree, "count", ("more than %d items"):format(MAX_ITEMS))
  end
  return ("reply, %d items: %s"):format(count, join(items))
end

local function dissect_log(cursor, datagram, head)
  local tree = add_tree(cursor, datagram, GROUPS.log)
  local log = add_fields(cursor, tree, LOG_HEAD)
  local texts = {}
  if not log then
    return COMMANDS[head.command]
  end
  if log.length ~= cursor:left() then
    report(tree, "length", ("data length is %d, not %d"):format(log.length, cursor:left()))
  end
  add_elements(cursor, tree, GROUPS.level, math.floor(cursor:left() / 10), 10, "entry", function(element)
    local entry = add_fields(cursor, element, LOG_ENTRY)
    texts[#texts + 1] = ("%s %d"):format(entry.tag, entry.level)
    return "Level " .. texts[#texts]
  end)
  check_end(cursor, tree, "entry")
  local command = LOG_COMMANDS[log.command] or "command " .. log.command
  return ("%s: %s%s%s"):format(COMMANDS[head.command], command, #texts > 0 and ": " or "", join(texts))
end

local function dissect_block(cursor, tree, head)
  local block = add_fields(cursor, tree, STACK_BLOCK)
  if not block then
    return COMMANDS[head.command]
  end
  if head.command == FROM_STACK and block.type == MESSAGES then
    return dissect_reply(cursor, tree, block.number)
  end
  if head.command == TO_STACK and DATA_TYPES[block.type] then
    if block.length ~= cursor.tvb:reported_len() - cursor.at then
      report(tree, "length", ("data length is %d, not %d"):format(block.length, cursor.tvb:reported_len() - cursor.at))
    end
    if block.type == RECORD then
      return dissect_record(cursor, tree)
    end
    add_rest(cursor, add_tree(cursor, tree, GROUPS.request))
    return "request for SPAT"
  end
  report(tree, "type", ("data type %d"):format(block.type))
  add_rest(cursor, tree)
  return COMMANDS[head.command]
end

local COMMAND_DISSECTORS = {
  [TO_STACK] = dissect_block, [FROM_STACK] = dissect_block, [LOG_REQUEST] = dissect_log, [LOG_ANSWER] = dissect_log,
}

local function dissect_stack(cursor, tree)
  local total = cursor.tvb:reported_len()
  local head = add_fields(cursor, tree, STACK_HEAD)
  if not head then
    return "stack datagram"
  end
  if head.flag ~= "\xA5\x5A" then
    report(tree, "start", "start bytes are not A5 5A")
  end
  if head.length ~= total - 17 then
    report(tree, "length", ("%d bytes after the header, not %d"):format(total - 17, head.length))
  elseif head.length > MAX_PACK then
    report(tree, "length", ("more than %d bytes after the header"):format(MAX_PACK))
  end
  local dissect = COMMAND_DISSECTORS[head.command]
  if not dissect then
    report(tree, "type", ("command %d"):format(head.command))
    add_rest(cursor, tree)
    return "stack datagram"
  end
  return dissect(cursor, tree, head)
end

-- ---- DDS samples

local function dissect_octets(cursor, tree, topic)
  if cursor:left() == 0 then
    return "no octets"
  end
  if topic:find("service_status$") and cursor:left() == 26 then
    local status = add_fields(cursor, tree, STATUS_RECORD)
    return ("%s, %s"):format(SERVICES[status.service] or "service " .. status.service,
      RUN_STATES[status.run] or "run status " .. status.run)
  end
  local range = cursor:take(cursor:left())
  if topic:find("/spat/") then
    tree:add(EXTRA.document, range, printable(range:raw()))
  else
    tree:add(EXTRA.octets, range)
  end
  return ("%d octets"):format(range:len())
end

local function dissect_sample(cursor, datagram)
  local tree = add_tree(cursor, datagram, GROUPS.sample)
  local head = add_fields(cursor, tree, SAMPLE_HEAD)
  if not head then
    return "DDS sample"
  end
  if head.version ~= 1 then
    report(tree, "type", ("version %d"):format(head.version))
  end
  if head.topic_length > cursor:left() then
    report(tree, "length", "the data ends before the end of \"Topic\"")
    return "DDS sample"
  end
  local range = cursor:take(head.topic_length)
  local topic = printable(range:raw())
  tree:add(EXTRA.topic, range, topic)
  local direction = add_fields(cursor, tree, SAMPLE_DIRECTION)
  if not direction then
    return "DDS sample " .. topic
  end
  return ("DDS sample %s %s: %s"):format(topic, DIRECTIONS[direction.direction] or "?",
    dissect_octets(cursor, tree, topic))
end

-- ---- kinds of datagrams

local function read_uint16(raw, at)
  return raw:byte(at) + 256 * raw:byte(at + 1)
end

local function is_learner(raw)
  return #raw >= 5 and raw:sub(1, 2) == "\xFE\xFE"
    and (LEARNER_TYPES[raw:byte(3)] ~= nil or raw:byte(4) * 256 + raw:byte(5) == #raw - 5)
end

local function is_controller(raw)
  local last, is_frame = find_part(raw, 1)
  local body = is_frame and last <= MAX_FRAME and unescape(raw:sub(2, last - 1)) or ""
  return body:sub(25, 27) == "\x87\x03\x01" or is_crc_right(body)
end

local function is_stack(raw)
  return #raw >= 17 and raw:sub(1, 2) == "\xA5\x5A"
    and (COMMANDS[read_uint16(raw, 13)] ~= nil or read_uint16(raw, 15) == #raw - 17)
end

local function is_sample(raw)
  return raw:sub(1, 6) == "V2XDDS"
end

local KINDS = {
  { name = "learner", ports = "8001-8002", recognize = is_learner, dissect = dissect_learner },
  { name = "controller", ports = "9002", recognize = is_controller, dissect = dissect_controller },
  { name = "stack", ports = "20001-20003,20010", recognize = is_stack, dissect = dissect_stack },
  { name = "sample", ports = "57399", recognize = is_sample, dissect = dissect_sample },
}
for _, kind in ipairs(KINDS) do
  proto.prefs[kind.name .. "_ports"] = Pref.range("UDP ports of the " .. kind.name, kind.ports,
    "Datagrams to these ports are dissected without valid start bytes, too", 65535)
end

-- Returns the kind of a datagram by its destination port, else by its bytes.
local function find_kind(raw, port)
  for _, kind in ipairs(KINDS) do
    if kind.port_set[port] then
      return kind
    end
  end
  for _, kind in ipairs(KINDS) do
    if kind.recognize(raw) then
      return kind
    end
  end
end

local function dissect(tvb, pinfo, tree)
  local kind = tvb:len() > 0 and find_kind(tvb():raw(), pinfo.dst_port)
  if not kind then
    return 0
  end
  pinfo.cols.protocol = "V2X-SPAT"
  first_problem = nil
  local item = tree:add(proto, tvb())
  if tvb:len() < tvb:reported_len() then
    report(item, "length", "the capture truncates the datagram")
  end
  local info = kind.dissect(new_cursor(tvb), item)
  item:append_text(", " .. info)
  pinfo.cols.info = info .. (first_problem and " [" .. first_problem .. "]" or "")
  return tvb:len()
end

proto.dissector = dissect
-- proto.dissector would dissect other datagrams as "data", which hides them from further dissectors.
proto:register_heuristic("udp", function(tvb, pinfo, tree)
  return dissect(tvb, pinfo, tree) > 0
end)

-- Returns the set of the ports in a list such as "8001-8002,9002".
local function parse_ports(list)
  local ports = {}
  for first, last in list:gmatch("(%d+)%-?(%d*)") do
    for port = tonumber(first), tonumber(last) or tonumber(first) do
      ports[port] = true
    end
  end
  return ports
end

local function register_ports()
  local udp_ports = DissectorTable.get("udp.port")
  for _, kind in ipairs(KINDS) do
    if kind.registered and kind.registered ~= "" then
      udp_ports:remove(kind.registered, proto)
    end
    kind.registered = proto.prefs[kind.name .. "_ports"]
    kind.port_set = parse_ports(kind.registered)
    if kind.registered ~= "" then
      udp_ports:add(kind.registered, proto)
    end
  end
end
proto.prefs_changed = register_ports
register_ports()
