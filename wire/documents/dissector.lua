-- Numbers that the information column leaves out, because they say nothing about a message.
local silent = { one = true, zero = true, id2 = true, mode = true, more = true, stopped = true, rule_type = true, sel = true }

-- Adds the fields of a record that starts at `start`, as far as they end before `limit`, and the reserved bytes between
-- them. Collects the values for the information column in `summary`, if there is one.
local function add_fields(tree, shapes, buffer, start, at, limit, summary)
  for _, shape in ipairs(shapes) do
    local from = start + shape.offset
    if from + shape.width > limit then break end
    add_reserved(tree, buffer, at, from)
    local item, text = kinds[shape.kind].add(shape, tree, buffer(from, shape.width))
    local length = shape.length
    if length and start + length.offset < limit then
      local bits = "/" .. buffer(start + length.offset, 1):uint()
      item:append_text(bits)
      text = text .. bits
      tree:add(f_prefix, buffer(from, shape.width), text):set_hidden()
    end
    local is_length = shape.name:find("_len$")
    local is_said = text and text ~= "0" and text ~= "0.0.0.0" and text ~= "::/0"
    if summary and is_said and not (shape.selects or silent[shape.name] or is_length or shape.kind == "code") then
      table.insert(summary, shape.name .. "=" .. text)
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
  tree:add_le(f_type, buffer(WIRE_TYPE_AT, WIRE_TYPE_SIZE)):add_le(f_number, buffer(WIRE_TYPE_AT, WIRE_TYPE_SIZE))
  local item = tree:add_le(f_domain, buffer(WIRE_DOMAIN_AT, WIRE_DOMAIN_SIZE))
  if buffer(WIRE_DOMAIN_AT, WIRE_DOMAIN_SIZE):le_uint() ~= domain then item:add_proto_expert_info(e_header, "the domain must be " .. domain) end
  add_reserved(tree, buffer, WIRE_SHORT_RESERVED_AT, short_header_size)
  if body == short_header_size then return end
  tree:add_le(f_context, buffer(WIRE_CONTEXT_AT, WIRE_CONTEXT_SIZE))
  tree:add_le(f_epoch, buffer(WIRE_EPOCH_AT, WIRE_EPOCH_SIZE))
  add_reserved(tree, buffer, WIRE_RESERVED_AT, header_size)
end

-- Returns the description of a message, or nil and why it cannot be identified. An unknown message gives only nil.
local function find(direction, buffer)
  local candidates = by_type[direction * 0x10000 + buffer(WIRE_TYPE_AT, WIRE_TYPE_SIZE):le_uint()] or {}
  local problem
  for _, message in ipairs(candidates) do
    local at = message.selector_offset
    if not at then return message end
    if buffer:len() < at + 4 then
      problem = "too short to tell which message it is"
    elseif buffer(at, 4):le_uint() == message.selector then
      return message
    end
  end
  return nil, problem
end

-- Returns the result of a message from the server, or nil.
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

-- Adds the bytes after `at`: as reserved where they are well formed, the others as not dissected.
local function add_rest(tree, message, buffer, at)
  local reserved_to = message.open and buffer:len() or math.min(message.size, buffer:len())
  add_reserved(tree, buffer, at, reserved_to)
  add_undissected(tree, buffer, math.max(at, reserved_to))
end

local function add_body(tree, message, buffer, result, summary)
  local at = add_fields(tree, message.fields, buffer, 0, message.body, buffer:len(), summary)
  local entry = message.entry
  if not entry or result ~= 0 or buffer:len() < message.size then return add_rest(tree, message, buffer, at) end
  add_reserved(tree, buffer, at, entry.offset)
  local count = entry.count_offset and buffer(entry.count_offset, 4):le_uint() or 1
  local to, found = add_entries(tree, entry, buffer, count)
  add_undissected(tree, buffer, to)
  if found < count then return "has " .. found .. " of " .. count .. " " .. entry.name end
end

-- An exchange is a command with its replies. `pending` holds the last one by the key that its messages share, `exchanges`
-- holds them by frame. `commands` counts per command how often it was sent and answered, and sums up the response times.
local pending, exchanges, commands = {}, {}, {}
function nat64.init() pending, exchanges, commands = {}, {}, {} end

local function remember(pinfo, key, message)
  if message.direction == to_server then
    local command = commands[message.name] or { sent = 0, answered = 0, total = 0, longest = 0 }
    commands[message.name] = command
    command.sent = command.sent + 1
    pending[key] = { request = pinfo.number, time = pinfo.rel_ts, responses = {}, command = command }
  elseif pending[key] then
    local exchange = pending[key]
    local taken = pinfo.rel_ts - exchange.time
    table.insert(exchange.responses, { frame = pinfo.number, taken = taken })
    if #exchange.responses == 1 then
      local command = exchange.command
      command.answered = command.answered + 1
      command.total = command.total + taken
      command.longest = math.max(command.longest, taken)
    end
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
    local key = message.body == header_size and tostring(buffer(WIRE_CONTEXT_AT, WIRE_CONTEXT_AND_EPOCH_SIZE):bytes()) or "sync " .. message.type
    remember(pinfo, key, message)
  end
  local exchange = exchanges[pinfo.number]
  if not exchange then return end
  if is_request then
    for _, response in ipairs(exchange.responses) do
      tree:add(f_response_in, response.frame):set_generated()
      tree:add(f_response_time, seconds(response.taken)):set_generated()
    end
    if pinfo.visited and #exchange.responses == 0 then tree:add_proto_expert_info(e_unanswered) end
  else
    tree:add(f_request_in, exchange.request):set_generated()
    tree:add(f_response_time, seconds(pinfo.rel_ts - exchange.time)):set_generated()
  end
end

-- Returns a text table of the commands and their response times.
local function statistics()
  local names = {}
  for name in pairs(commands) do names[#names + 1] = name end
  table.sort(names)
  local lines = { string.format("%-24s %10s %10s %14s %14s", "command", "sent", "answered", "mean us", "longest us") }
  for _, name in ipairs(names) do
    local of = commands[name]
    local mean = of.answered > 0 and of.total / of.answered or 0
    lines[#lines + 1] =
      string.format("%-24s %10d %10d %14.1f %14.1f", name, of.sent, of.answered, 1e6 * mean, 1e6 * of.longest)
  end
  return table.concat(lines, "\n") .. "\n"
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
  if result and result ~= 0 then tree:add_proto_expert_info(e_refused) end
  problem = check_length(message, buffer, result)
  local summary = {}
  problem = add_body(tree, message, buffer, result, summary) or problem
  if #summary > 0 then pinfo.cols.info:append(" " .. table.concat(summary, " ", 1, math.min(#summary, 8))) end
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
  add_hidden(tree, f_reserved, tvb(3, 1))
  local direction, is_sync = tvb(1, 1):uint(), tvb(2, 1):uint() == 1
  if tvb(0, 1):uint() ~= 1 or direction > to_client then
    tree:add_proto_expert_info(e_unknown, "unknown version or direction")
    return add_undissected(tree, tvb, pseudo_header_size)
  end
  pinfo.cols.src = direction == to_server and "client" or "server"
  pinfo.cols.dst = direction == to_server and "server" or "client"
  local buffer = tvb(pseudo_header_size):tvb()
  if is_sync ~= (math.floor(buffer(WIRE_TYPE_AT, WIRE_TYPE_SIZE):le_uint() / WIRE_NUMBER_END) == WIRE_SYNC_FORM) then
    form:add_proto_expert_info(e_header, "the type word has the other form")
  end
  dissect_message(tree, pinfo, buffer, direction, tvb:len() < tvb:reported_len())
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, nat64)

if ({ ... })[1] == "statistics" then
  local tap = Listener.new("frame", "fwx_nat64")
  function tap.draw() print(statistics()) end
elseif gui_enabled() then
  register_menu("NAT64 commands", function() TextWindow.new("NAT64 commands"):set(statistics()) end, MENU_STAT_GENERIC_UNSORTED or MENU_STAT_UNSORTED)
end
