/* The part of the dissector that does not depend on the messages; the tables before it do. */
#ifndef WIRE_DISSECTOR_CODE_H
#define WIRE_DISSECTOR_CODE_H

constexpr const char *dissector_code = R"lua(
local to_server, to_client = 0, 1
local pseudo_header_size = 4
local short_header_size, header_size = 16, 32 -- of a synchronous message or notification, and of any other
local domain = 96

local nat64 = Proto("fwx_nat64", "NAT64 client protocol")

-- Fields by their abbreviation; one that several messages share is made once.
local fields = {}
local function field(make, abbrev, ...)
  if not fields[abbrev] then fields[abbrev] = ProtoField[make]("fwx_nat64." .. abbrev, ...) end
  return fields[abbrev]
end

local f_version = field("uint8", "version", "version")
local f_direction = field("uint8", "direction", "direction", base.DEC, { [0] = "to server", "to client" })
local f_form = field("uint8", "form", "form", base.DEC, { [0] = "asynchronous", "synchronous" })
local f_message = field("string", "message", "message")
local f_type = field("uint16", "type", "type word", base.HEX)
local f_number = field("uint16", "number", "message number", base.DEC, nil, 0x0fff)
local f_domain = field("uint16", "domain", "domain")
local f_context = field("uint64", "context", "client context", base.HEX)
local f_epoch = field("uint32", "epoch", "epoch")
local f_reserved = field("bytes", "reserved", "reserved")
local f_undissected = field("bytes", "undissected", "not dissected")
local f_request_in = field("framenum", "request_in", "request in", base.NONE, frametype.REQUEST)
local f_response_in = field("framenum", "response_in", "response in", base.NONE, frametype.RESPONSE)
local f_response_time = field("relative_time", "response_time", "response time")

local e_malformed = ProtoExpert.new("fwx_nat64.malformed", "malformed message", expert.group.MALFORMED, expert.severity.ERROR)
local e_unknown = ProtoExpert.new("fwx_nat64.unknown", "unknown message", expert.group.UNDECODED, expert.severity.WARN)
local e_header = ProtoExpert.new("fwx_nat64.header", "unexpected header", expert.group.PROTOCOL, expert.severity.WARN)
nat64.experts = { e_malformed, e_unknown, e_header }

local function add_reserved(tree, buffer, from, to)
  if to > from then tree:add(f_reserved, buffer(from, to - from)) end
end

local function add_undissected(tree, buffer, from)
  if buffer:len() > from then tree:add(f_undissected, buffer(from)) end
end

-- An IPv6 address from its first bytes.
local function ipv6(bytes)
  local groups = {}
  for i = 0, 14, 2 do
    local high = i < bytes:len() and bytes:get_index(i) or 0
    local low = i + 1 < bytes:len() and bytes:get_index(i + 1) or 0
    groups[#groups + 1] = string.format("%x", high * 256 + low)
  end
  return Address.ipv6(table.concat(groups, ":"))
end

local function reversed(bytes)
  local turned = ByteArray.new()
  turned:set_size(bytes:len())
  for i = 0, bytes:len() - 1 do turned:set_index(i, bytes:get_index(bytes:len() - 1 - i)) end
  return turned
end

local unsigned = { [1] = "uint8", [2] = "uint16", [4] = "uint32", [8] = "uint64" }
local operations = { "add", "modify", "delete" }
local families = { [0] = "IPv4" }

-- Of each kind of field: how it is declared, and how its bytes are shown.
local function add_little_endian(shape, tree, range) return tree:add_le(shape.field, range) end
local function number(display, names)
  return {
    declare = function(shape) shape.field = field(unsigned[shape.width], shape.abbrev, shape.name, display, names) end,
    add = add_little_endian,
  }
end
local function simple(make, add)
  return { declare = function(shape) shape.field = field(make, shape.abbrev, shape.name) end, add = add }
end
local kinds = {
  number = number(base.DEC),
  hex = number(base.HEX),
  flag = simple("bool", add_little_endian),
  operation = number(base.DEC, operations),
  code = number(base.HEX, result_names),
  bytes = simple("bytes", function(shape, tree, range) return tree:add(shape.field, range) end),
  ipv4 = simple("ipv4", function(shape, tree, range) return tree:add(shape.field, range) end),
  ipv4_swapped = simple("ipv4", add_little_endian),
  ipv6_swapped = simple("ipv6", function(shape, tree, range)
    return tree:add(shape.field, range, ipv6(reversed(range:bytes())))
  end),
  address = {
    declare = function(shape)
      shape.field = field("none", shape.abbrev, shape.name)
      shape.family = field("uint32", shape.abbrev .. ".family", "family", base.DEC, families)
      shape.ipv4 = field("ipv4", shape.abbrev .. ".ipv4", "address")
      shape.ipv6 = field("ipv6", shape.abbrev .. ".ipv6", "address")
    end,
    add = function(shape, tree, range)
      local item = tree:add(shape.field, range)
      item:add_le(shape.family, range(0, 4))
      if range(0, 4):le_uint() == 0 then
        item:append_text(": " .. tostring(range(4, 4):ipv4()))
        item:add(shape.ipv4, range(4, 4))
        item:add(f_reserved, range(8))
      else
        item:append_text(": " .. tostring(range(4, 16):ipv6()))
        item:add(shape.ipv6, range(4, 16))
      end
      return item
    end,
  },
  prefix = {
    declare = function(shape)
      shape.field = field("none", shape.abbrev, shape.name)
      shape.ipv6 = field("ipv6", shape.abbrev .. ".ipv6", "prefix")
      shape.bits = field("uint8", shape.abbrev .. ".length", "length")
    end,
    add = function(shape, tree, range)
      local address = ipv6(range(0, 12):bytes())
      local item = tree:add(shape.field, range)
      item:append_text(": " .. tostring(address) .. "/" .. range(15, 1):uint())
      item:add(shape.ipv6, range(0, 12), address)
      item:add(f_reserved, range(12, 3))
      item:add(shape.bits, range(15, 1))
      return item
    end,
  },
}

-- A shape is { name, offset, width, kind } as it stands in the tables.
local function declare(shapes, prefix)
  local by_name = {}
  for _, shape in ipairs(shapes) do
    shape.name, shape.offset, shape.width, shape.kind = shape[1], shape[2], shape[3], shape[4]
    shape.abbrev = (shape.kind == "code" or shape.selects) and shape.name or prefix .. shape.name
    kinds[shape.kind].declare(shape)
    by_name[shape.name] = shape
  end
  for _, shape in ipairs(shapes) do shape.length = by_name[shape.name .. "_len"] end
end

local by_type = {} -- messages by direction and type word
for _, message in ipairs(messages) do
  if message.selector then message.fields[1].selects = message.name end
  declare(message.fields, message.name .. ".")
  if message.entry then
    message.entry.field = field("none", message.name .. "." .. message.entry.name, message.entry.name)
    declare(message.entry.fields, message.name .. "." .. message.entry.name .. ".")
  end
  local key = message.direction * 0x10000 + message.type
  by_type[key] = by_type[key] or {}
  table.insert(by_type[key], message)
end
nat64.fields = fields

-- Adds the fields that end before `limit` of a record that starts at `start`, and the reserved bytes between them.
local function add_fields(tree, shapes, buffer, start, at, limit)
  for _, shape in ipairs(shapes) do
    local from = start + shape.offset
    if from + shape.width > limit then break end
    add_reserved(tree, buffer, at, from)
    local item = kinds[shape.kind].add(shape, tree, buffer(from, shape.width))
    local length = shape.length
    if length and start + length.offset < limit then
      item:append_text("/" .. buffer(start + length.offset, 1):uint())
    end
    if shape.selects then item:append_text(" (" .. shape.selects .. ")") end
    at = from + shape.width
  end
  return at
end

local function add_entries(tree, entry, buffer, count)
  local at = entry.offset
  for index = 1, count do
    local to = at + entry.size
    if to > buffer:len() then return at, index - 1 end
    local item = tree:add(entry.field, buffer(at, entry.size))
    item:append_text(" " .. index)
    add_reserved(item, buffer, add_fields(item, entry.fields, buffer, at, at, to), to)
    at = to
  end
  return at, count
end

local function add_header(tree, buffer, body)
  tree:add_le(f_type, buffer(0, 2)):add_le(f_number, buffer(0, 2))
  local item = tree:add_le(f_domain, buffer(2, 2))
  if buffer(2, 2):le_uint() ~= domain then item:add_proto_expert_info(e_header, "the domain must be " .. domain) end
  add_reserved(tree, buffer, 4, short_header_size)
  if body == short_header_size then return end
  tree:add_le(f_context, buffer(16, 8))
  tree:add_le(f_epoch, buffer(24, 4))
  add_reserved(tree, buffer, 28, header_size)
end

-- The description of a message, or why it cannot be told; neither for an unknown one.
local function find(direction, buffer)
  local candidates = by_type[direction * 0x10000 + buffer(0, 2):le_uint()] or {}
  for _, message in ipairs(candidates) do
    local at = message.selector_offset
    if not at then return message end
    if buffer:len() < at + 4 then return nil, "too short to tell which message it is" end
    if buffer(at, 4):le_uint() == message.selector then return message end
  end
end

-- The result of a message from the server, or null.
local function result_of(message, buffer)
  local shape = message.fields[1]
  if not shape or shape.kind ~= "code" or buffer:len() < shape.offset + 4 then return nil end
  return buffer(shape.offset, 4):le_uint()
end

local function check_length(message, buffer, result)
  local least = message.size
  if result and result ~= 0 then least = message.fields[1].offset + 4 end
  if buffer:len() < least then return "only " .. buffer:len() .. " bytes, must be " .. least end
  if message.exact and buffer:len() > message.size then
    return buffer:len() .. " bytes, must be " .. message.size
  end
end

-- What remains of a message behind `at`: reserved where a longer message is well formed.
local function add_rest(tree, message, buffer, at)
  local reserved_to = message.open and buffer:len() or math.min(message.size, buffer:len())
  add_reserved(tree, buffer, at, reserved_to)
  add_undissected(tree, buffer, math.max(at, reserved_to))
end

local function add_body(tree, message, buffer, result)
  local at = add_fields(tree, message.fields, buffer, 0, message.body, buffer:len())
  local entry = message.entry
  if not entry or result ~= 0 or buffer:len() < message.size then return add_rest(tree, message, buffer, at) end
  add_reserved(tree, buffer, at, entry.offset)
  local count = entry.count_offset and buffer(entry.count_offset, 4):le_uint() or 1
  local to, found = add_entries(tree, entry, buffer, count)
  add_undissected(tree, buffer, to)
  if found < count then return "has " .. found .. " of " .. count .. " " .. entry.name end
end

-- Exchanges by the key that their messages share while they last, and by frame.
local pending, exchanges = {}, {}
function nat64.init() pending, exchanges = {}, {} end

local function remember(pinfo, key, is_request)
  if is_request then
    pending[key] = { request = pinfo.number, time = pinfo.rel_ts, responses = {} }
  elseif pending[key] then
    table.insert(pending[key].responses, pinfo.number)
  end
  exchanges[pinfo.number] = pending[key]
end

local function seconds(time)
  local whole = math.floor(time)
  return NSTime.new(whole, math.floor((time - whole) * 1e9 + 0.5))
end

local function add_links(tree, pinfo, message, buffer)
  if message.body > buffer:len() then return end
  local is_request = message.direction == to_server
  if not pinfo.visited and not message.unsolicited then
    local key = message.body == header_size and tostring(buffer(16, 12):bytes()) or "sync " .. message.type
    remember(pinfo, key, is_request)
  end
  local exchange = exchanges[pinfo.number]
  if not exchange then return end
  if is_request then
    for _, frame in ipairs(exchange.responses) do tree:add(f_response_in, frame):set_generated() end
  else
    tree:add(f_request_in, exchange.request):set_generated()
    tree:add(f_response_time, seconds(pinfo.rel_ts - exchange.time)):set_generated()
  end
end

local function dissect_message(tree, pinfo, buffer, direction, is_cut)
  local message, problem = find(direction, buffer)
  local name = message and message.name or "unknown message"
  pinfo.cols.info = name
  tree:append_text(": " .. name)
  tree:add(f_message, name):set_generated()
  local body = message and message.body or short_header_size
  if not message or buffer:len() < body then
    if problem or message then
      tree:add_proto_expert_info(e_malformed, problem or "ends within its header")
    else
      tree:add_proto_expert_info(e_unknown)
    end
    if buffer:len() < short_header_size then return add_undissected(tree, buffer, 0) end
    add_header(tree, buffer, short_header_size)
    return add_undissected(tree, buffer, short_header_size)
  end
  tree:append_text(", " .. message.purpose)
  add_header(tree, buffer, body)
  add_links(tree, pinfo, message, buffer)
  local result = result_of(message, buffer)
  if result then pinfo.cols.info:append(" " .. (result_names[result] or string.format("0x%x", result))) end
  problem = check_length(message, buffer, result)
  problem = add_body(tree, message, buffer, result) or problem
  if problem and not is_cut then tree:add_proto_expert_info(e_malformed, name .. ": " .. problem) end
end

function nat64.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "NAT64"
  local tree = root:add(nat64, tvb())
  if tvb:len() < pseudo_header_size + 2 then
    tree:add_proto_expert_info(e_malformed, "no message")
    return add_undissected(tree, tvb, 0)
  end
  tree:add(f_version, tvb(0, 1))
  tree:add(f_direction, tvb(1, 1))
  local form = tree:add(f_form, tvb(2, 1))
  tree:add(f_reserved, tvb(3, 1))
  local direction, is_sync = tvb(1, 1):uint(), tvb(2, 1):uint() == 1
  if tvb(0, 1):uint() ~= 1 or direction > to_client then
    tree:add_proto_expert_info(e_unknown, "unknown version or direction")
    return add_undissected(tree, tvb, pseudo_header_size)
  end
  pinfo.cols.src = direction == to_server and "client" or "server"
  pinfo.cols.dst = direction == to_server and "server" or "client"
  local buffer = tvb(pseudo_header_size):tvb()
  if is_sync ~= (math.floor(buffer(0, 2):le_uint() / 0x1000) == 8) then
    form:add_proto_expert_info(e_header, "the type word has the other form")
  end
  dissect_message(tree, pinfo, buffer, direction, tvb:len() < tvb:reported_len())
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, nat64)
)lua";

#endif
