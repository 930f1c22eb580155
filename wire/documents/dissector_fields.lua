-- A Wireshark dissector for capture files of the messages between the NAT64 client library and the server.
--
-- tshark -X lua_script:fwx_nat64.lua -r FILE, or put this file into Wireshark's folder of personal Lua plugins.
-- Filters: fwx_nat64.message == "timeout_set", fwx_nat64.result != 0, fwx_nat64.refused, fwx_nat64.unanswered (with -2),
-- fwx_nat64.ipv4, .ipv6, .prefix, .id and .ifh in any message, fwx_nat64.MESSAGE.FIELD for every other field.
-- tshark -q -X lua_script:fwx_nat64.lua -X lua_script1:statistics -r FILE counts commands and their response times, and
-- so does Wireshark's menu Statistics.
--
-- The build target `documents` prints it from the description in wire/; do not edit it by hand.

local result_names = WIRE_LUA_RESULT_NAMES

local messages = WIRE_LUA_MESSAGES

local to_server, to_client = WIRE_TO_SERVER, WIRE_TO_CLIENT
local pseudo_header_size = 4
local short_header_size, header_size = WIRE_SHORT_HEADER_SIZE, WIRE_HEADER_SIZE -- of a synchronous message or notification, and of any other
local domain = WIRE_DOMAIN

local nat64 = Proto("fwx_nat64", "NAT64 client protocol")

-- Fields by their abbreviation; messages share a field that has the same abbreviation.
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
local f_number = field("uint16", "number", "message number", base.DEC, nil, WIRE_NUMBER_MASK)
local f_domain = field("uint16", "domain", "domain")
local f_context = field("uint64", "context", "client context", base.HEX)
local f_epoch = field("uint32", "epoch", "epoch")
local f_reserved = field("bytes", "reserved", "reserved")
local f_undissected = field("bytes", "undissected", "not dissected")
-- Fields for a value in any message.
local f_ipv4 = field("ipv4", "ipv4", "IPv4 address")
local f_ipv6 = field("ipv6", "ipv6", "IPv6 address")
local f_prefix = field("string", "prefix", "prefix")
local f_id = field("uint64", "id", "identifier")
local f_ifh = field("uint32", "ifh", "interface handle")
local by_name = { id = f_id, rule_id = f_id, pool_id = f_id, mapping_id = f_id, ifh = f_ifh }
local f_request_in = field("framenum", "request_in", "request in", base.NONE, frametype.REQUEST)
local f_response_in = field("framenum", "response_in", "response in", base.NONE, frametype.RESPONSE)
local f_response_time = field("relative_time", "response_time", "response time")

local e_malformed = ProtoExpert.new("fwx_nat64.malformed", "malformed message", expert.group.MALFORMED, expert.severity.ERROR)
local e_unknown = ProtoExpert.new("fwx_nat64.unknown", "unknown message", expert.group.UNDECODED, expert.severity.WARN)
local e_header = ProtoExpert.new("fwx_nat64.header", "unexpected header", expert.group.PROTOCOL, expert.severity.WARN)
local e_refused = ProtoExpert.new("fwx_nat64.refused", "refused", expert.group.RESPONSE_CODE, expert.severity.NOTE)
local e_unanswered = ProtoExpert.new("fwx_nat64.unanswered", "unanswered", expert.group.SEQUENCE, expert.severity.WARN)
nat64.experts = { e_malformed, e_unknown, e_header, e_refused, e_unanswered }

-- Adds an item that the tree hides, but filters find.
local function add_hidden(tree, ...)
  tree:add(...):set_hidden()
end

local function add_reserved(tree, buffer, from, to)
  if to > from then add_hidden(tree, f_reserved, buffer(from, to - from)) end
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
local operations = WIRE_LUA_OPERATIONS
local families = { [WIRE_FAMILY_IPV4] = "IPv4" }

-- For each kind of field: `declare` creates the field; `add` shows its bytes and returns the item, and the value as text if
-- the information column may show it.
local function add_little_endian(shape, tree, range) return tree:add_le(shape.field, range) end
local function number(display, names)
  return {
    declare = function(shape)
      shape.names = names or shape.names
      shape.field = field(unsigned[shape.width], shape.abbrev, shape.name, display, shape.names)
    end,
    add = function(shape, tree, range)
      local item, value = tree:add_le(shape.field, range), range:le_uint64()
      local common = by_name[shape.name]
      if common then add_hidden(tree, common, range, common == f_id and value or value:tonumber()) end
      return item, display == base.DEC and (shape.names and shape.names[value:tonumber()] or tostring(value)) or nil
    end,
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
  ipv4 = simple("ipv4", function(shape, tree, range)
    add_hidden(tree, f_ipv4, range)
    return tree:add(shape.field, range), tostring(range:ipv4())
  end),
  ipv4_swapped = simple("ipv4", function(shape, tree, range)
    tree:add_le(f_ipv4, range):set_hidden()
    return tree:add_le(shape.field, range), tostring(range:le_ipv4())
  end),
  ipv6_swapped = simple("ipv6", function(shape, tree, range)
    local address = ipv6(reversed(range:bytes()))
    add_hidden(tree, f_ipv6, range, address)
    return tree:add(shape.field, range, address), tostring(address)
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
      item:add_le(shape.family, range(WIRE_FAMILY_AT, WIRE_FAMILY_SIZE))
      local text
      if range(WIRE_FAMILY_AT, WIRE_FAMILY_SIZE):le_uint() == WIRE_FAMILY_IPV4 then
        local address = range(WIRE_ADDRESS_AT, WIRE_IPV4_SIZE)
        text = tostring(address:ipv4())
        item:add(shape.ipv4, address)
        add_hidden(item, f_ipv4, address)
        add_hidden(item, f_reserved, range(WIRE_IPV4_END))
      else
        local address = range(WIRE_ADDRESS_AT, WIRE_ADDRESS_SIZE)
        text = tostring(address:ipv6())
        item:add(shape.ipv6, address)
        add_hidden(item, f_ipv6, address)
      end
      item:append_text(": " .. text)
      return item, text
    end,
  },
  prefix = {
    declare = function(shape)
      shape.field = field("none", shape.abbrev, shape.name)
      shape.ipv6 = field("ipv6", shape.abbrev .. ".ipv6", "prefix")
      shape.bits = field("uint8", shape.abbrev .. ".length", "length")
    end,
    add = function(shape, tree, range)
      local address = ipv6(range(WIRE_PREFIX_AT, WIRE_PREFIX_SIZE):bytes())
      local item = tree:add(shape.field, range)
      local text = tostring(address) .. "/" .. range(WIRE_PREFIX_LENGTH_AT, WIRE_PREFIX_LENGTH_SIZE):uint()
      item:append_text(": " .. text)
      item:add(shape.ipv6, range(WIRE_PREFIX_AT, WIRE_PREFIX_SIZE), address)
      add_hidden(item, f_reserved, range(WIRE_PREFIX_RESERVED_AT, WIRE_PREFIX_RESERVED_SIZE))
      item:add(shape.bits, range(WIRE_PREFIX_LENGTH_AT, WIRE_PREFIX_LENGTH_SIZE))
      add_hidden(item, f_prefix, range, text)
      return item, text
    end,
  },
}

-- Declares the fields of a message or entry. A shape is a row of the tables: { name, offset, width, kind, names of values }.
local function declare(shapes, prefix)
  local found = {}
  for _, shape in ipairs(shapes) do
    shape.name, shape.offset, shape.width, shape.kind, shape.names = shape[1], shape[2], shape[3], shape[4], shape[5]
    shape.abbrev = (shape.kind == "code" or shape.selects) and shape.name or prefix .. shape.name
    kinds[shape.kind].declare(shape)
    found[shape.name] = shape
  end
  for _, shape in ipairs(shapes) do shape.length = found[shape.name .. "_len"] end
end

local by_type = {} -- messages by direction and type word
for _, message in ipairs(messages) do
  for _, shape in ipairs(message.fields) do
    if message.selector and shape[2] == message.selector_offset then shape.selects = message.name end
  end
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

