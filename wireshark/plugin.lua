-- What Wireshark calls.

-- The record of the frame's next message: messages of a frame come in the same order each time.
local function nextRecord(pinfo, make)
  local number = (tonumber(pinfo.private.zord410) or 0) + 1
  pinfo.private.zord410 = tostring(number)
  local ofFrame = records[pinfo.number]
  if not ofFrame then
    ofFrame = {}
    records[pinfo.number] = ofFrame
  end
  if not ofFrame[number] and not pinfo.visited and not pinfo.in_error_pkt then ofFrame[number] = make() end
  return ofFrame[number] or {}
end

-- Whether a message goes to a server: by the port that Wireshark chose this dissector for, else by what is
-- known, else by its content. Rows that nobody asked for are taken for pushed ones: they come from a port
-- of their own.
local function goesToServer(pinfo, port, source, destination, message)
  if port == pinfo.dst_port and port ~= pinfo.src_port then return true end
  if port == pinfo.src_port and port ~= pinfo.dst_port then return false end
  if servers[destination] then return true end
  if servers[source] then return false end
  local first = message.fields[1]
  return first and first.type == T.requestType and first.number ~= R.data or false
end

local streamNumber = Field.new("tcp.stream")

-- Who talks to whom, which stays as it was found the first time.
local function wayOf(pinfo, port, isStream, message)
  local sender, receiver = tostring(pinfo.src), tostring(pinfo.dst)
  local source, destination = sender .. ":" .. pinfo.src_port, receiver .. ":" .. pinfo.dst_port
  local known = records[pinfo.number] and records[pinfo.number][1]
  local toServer = known and known.toServer
  if not known then toServer = goesToServer(pinfo, port, source, destination, message) end
  local client, at, host = destination, source, sender
  if toServer then client, at, host = source, destination, receiver end
  local stream = isStream and streamNumber()
  return {
    isStream = isStream,
    toServer = toServer,
    frame = pinfo.number,
    time = pinfo.rel_ts,
    sender = sender,
    receiver = destination,
    client = client,
    endpoint = at,
    host = host,
    conversation = client .. " " .. at .. (stream and " " .. stream.value or ""),
  }
end

-- A push comes from a port that is no server: only what says that it is makes one.
local function findServer(way, message)
  local isServer = way.toServer or message.kind == "answer"
  way.server = isServer and serverAt(way.endpoint, way.host) or servers[way.endpoint]
end

local function dissectMessage(tvb, pinfo, root, message, way)
  checkMessage(message, way)
  local record = nextRecord(pinfo, function()
    findServer(way, message)
    return learn(message, way)
  end)
  local first = message.fields[1]
  local isRow = first and first.type == T.requestType and first.number == R.data
  if isRow and record.attributes and #message.problems == 0 then
    checkValues(message, record.attributes)
    if not way.toServer then message.problems = {} end -- the server took it, perhaps before the last registration
  end
  showMessage(tvb, pinfo, root, message, record, way)
end

local function bytesOf(tvb)
  return tvb:len() > 0 and tvb:range():raw() or ""
end

-- Answers of several datagrams: the first one, and those that follow it, go into `long`.
local function beginsLongAnswer(message)
  return message.stated and #message.bytes == DATAGRAM_BYTES and message.stated > DATAGRAM_BYTES and message.stated <= ANSWER_BYTES and unsigned16(message.bytes, 5) == T.response
end

-- Returns the long answer that this datagram is a part of, if it is one of the first time.
local function takePart(message, way)
  local answer = long[way.conversation]
  if way.toServer then
    long[way.conversation] = nil
    return nil
  end
  if answer and way.time - answer.time > ANSWER_PAUSE_SECONDS then answer = nil end
  if answer and answer.size + #message.bytes > answer.stated then answer = nil end
  if not answer and beginsLongAnswer(message) then answer = { stated = message.stated, size = 0, pieces = {}, frames = {} } end
  long[way.conversation] = answer
  if not answer then return nil end
  answer.time = way.time
  answer.size = answer.size + #message.bytes
  answer.pieces[#answer.pieces + 1] = message.bytes
  answer.frames[#answer.frames + 1] = way.frame
  if answer.size == answer.stated then
    long[way.conversation] = nil
    answer.bytes, answer.pieces, answer.wholeIn = table.concat(answer.pieces), nil, way.frame
  end
  return answer
end

local function showPart(tvb, pinfo, root, answer)
  local tree = root:add(channel, tvb:range(0, tvb:len()))
  tree:append_text(", part of an answer")
  addGenerated(tree, f.message, "Part of an answer")
  if answer.wholeIn then addGenerated(tree, f.reassembledIn, answer.wholeIn) end
  pinfo.cols.protocol = "zord410"
  pinfo.cols.info = "Part of an answer of " .. answer.stated .. " bytes"
end

local function showLongAnswer(pinfo, root, answer, way)
  local tvb = ByteArray.new(answer.bytes, true):tvb("Whole answer")
  local tree = root:add(channel, tvb:range(0, tvb:len()), "Data Channel, answer of " .. #answer.frames .. " datagrams")
  for _, frame in ipairs(answer.frames) do
    addGenerated(tree, f.part, frame)
  end
  dissectMessage(tvb, pinfo, root, readMessage(answer.bytes), way)
end

local function dissectDatagram(tvb, pinfo, root, message, way)
  way.isCut = tvb:len() < tvb:reported_len() or pinfo.in_error_pkt and message.stated ~= #message.bytes
  local answer = parts[way.frame]
  if not answer and not pinfo.visited and not way.isCut and not pinfo.in_error_pkt then
    answer = takePart(message, way)
    parts[way.frame] = answer
  end
  if not answer then
    dissectMessage(tvb, pinfo, root, message, way)
  elseif answer.wholeIn == way.frame then
    showLongAnswer(pinfo, root, answer, way)
  else
    showPart(tvb, pinfo, root, answer)
  end
end

-- What has a length that no message has, or ends with the capture, goes on to the end of what is there.
local function dissectStream(tvb, pinfo, root)
  local at, size = 0, tvb:len()
  while at < size do
    local rest = size - at
    local length = rest >= LENGTH_WORD_BYTES and tvb:range(at, LENGTH_WORD_BYTES):uint()
    local isBroken = length and (length < LENGTH_WORD_BYTES or length > STREAM_MESSAGE_BYTES)
    local isWhole = length and length <= rest
    if not isBroken and not isWhole and pinfo.can_desegment > 0 and tvb:len() == tvb:reported_len() then
      pinfo.desegment_offset = at
      pinfo.desegment_len = length and length - rest or DESEGMENT_ONE_MORE_SEGMENT
      return
    end
    local piece = tvb:range(at, (isBroken or not isWhole) and rest or length):tvb()
    local message = readMessage(bytesOf(piece))
    local way = wayOf(pinfo, pinfo.match_uint, true, message)
    way.isCut = not isBroken and not isWhole
    if isBroken then
      message.fields, message.stated, message.broken = {}, nil, { at = 0, why = "no message has " .. length .. " bytes: where the next one begins is not known" }
    end
    dissectMessage(piece, pinfo, root, message, way)
    at = at + piece:len()
  end
end

local TCP = 2 -- of pinfo.port_type

function channel.dissector(tvb, pinfo, root)
  if pinfo.port_type == TCP then
    dissectStream(tvb, pinfo, root)
  elseif tvb:len() > 0 then
    local message = readMessage(bytesOf(tvb))
    dissectDatagram(tvb, pinfo, root, message, wayOf(pinfo, pinfo.match_uint, false, message))
  end
  return tvb:len()
end

-- Rows are pushed from a port that nobody knows beforehand, and a named instance has another one than
-- 1919: a datagram that is a message in every bit is taken for one, whatever its ports.
local function isMessage(message, way)
  if parts[way.frame] or not way.toServer and long[way.conversation] or beginsLongAnswer(message) then return true end
  if message.stated ~= #message.bytes or message.broken or #message.fields == 0 then return false end
  checkMessage(message, { toServer = false })
  return #message.problems == 0
end

channel:register_heuristic("udp", function(tvb, pinfo, root)
  local message = readMessage(bytesOf(tvb))
  local way = wayOf(pinfo, nil, false, message)
  if not records[way.frame] and not isMessage(message, way) then return false end
  dissectDatagram(tvb, pinfo, root, message, way)
  return true
end)

local served -- the ports as they were last set

local function servePorts()
  for _, name in ipairs({ "udp.port", "tcp.port" }) do
    local ports = DissectorTable.get(name)
    if served and served ~= "" then ports:remove(served, channel) end
    if channel.prefs.ports ~= "" then ports:add(channel.prefs.ports, channel) end
  end
  served = channel.prefs.ports
end

channel.prefs_changed = servePorts
servePorts()
for _, name in ipairs({ "udp.port", "tcp.port" }) do
  DissectorTable.get(name):add_for_decode_as(channel)
end
