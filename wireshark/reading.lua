-- Takes messages and registration texts apart, whatever is in them.

local function unsigned16(bytes, at)
  local high, low = bytes:byte(at, at + 1)
  return high * 256 + low
end

local function unsigned32(bytes, at)
  return unsigned16(bytes, at) * 65536 + unsigned16(bytes, at + 2)
end

local function signed(number, bits)
  return number >= 2 ^ (bits - 1) and number - 2 ^ bits or number
end

local function isUtf8(text)
  local at = text:find("[\128-\255]")
  while at do
    local first, second = text:byte(at, at + 1)
    second = second or 0
    local length = first >= 0xC2 and first < 0xE0 and 2 or first >= 0xE0 and first < 0xF0 and 3 or first >= 0xF0 and first < 0xF5 and 4
    if not length or not text:find("^" .. ("[\128-\191]"):rep(length - 1), at + 1) then return false end
    if first == 0xE0 and second < 0xA0 or first == 0xED and second > 0x9F then return false end
    if first == 0xF0 and second < 0x90 or first == 0xF4 and second > 0x8F then return false end
    at = text:find("[\128-\255]", at + length)
  end
  return true
end

-- For a column or a label: names come from anywhere.
local function printable(text)
  local shown = text:gsub("%c", "?")
  return isUtf8(shown) and shown or (shown:gsub("[\128-\255]", "?"))
end

local function upToZero(bytes)
  return bytes:match("^[^%z]*")
end

local readers = {}

function readers.short(field, value)
  if #value ~= 2 then return "has " .. #value .. " bytes instead of 2" end
  field.number = signed(unsigned16(value, 1), 16)
end

function readers.long(field, value)
  if #value ~= 4 then return "has " .. #value .. " bytes instead of 4" end
  field.number = signed(unsigned32(value, 1), 32)
end

function readers.text(field, value)
  if not value:find("%z") then return "has no terminating zero" end
  field.text = upToZero(value)
end

function readers.bytes(field, value)
  field.text = value
end

function readers.attributeValue(field, value)
  if #value == 0 then return "has no letter" end
  field.letter = value:sub(1, 1)
  field.value = value:sub(2)
end

-- How each type is read, and shown where a request does not say otherwise.
local types = {
  [T.requestType] = { readers.short, "request" },
  [T.status] = { readers.long, "status" },
  [T.response] = { readers.bytes, "response" },
  [T.applName] = { readers.text, "application" },
  [T.applKey] = { readers.text, "key" },
  [T.sourceName] = { readers.text, "source" },
  [T.attrGroup] = { readers.text, "group" },
  [T.tableName] = { readers.text, "tableName" },
  [T.attrName] = { readers.text, "attributeName" },
  [T.attrValue] = { readers.attributeValue, "attributeValue" },
  [T.dataCode] = { readers.short, "code" },
  [T.handle] = { readers.long, "handle" },
  [T.actionType] = { readers.short, "actionType" },
  [T.actionName] = { readers.text, "actionName" },
  [T.actionID] = { readers.long, "actionId" },
  [T.actionParms] = { readers.text, "parameters" },
  [T.actionOwner] = { readers.text, "owner" },
  [T.currentTime] = { readers.long, "currentTime" },
  [T.peltaObject] = { readers.long, "object" },
}

-- Takes a message apart. What follows a bad field cannot be told apart any more: `broken` says where
-- it begins, counted from 0, and why it is bad.
local function readMessage(bytes)
  local message = { bytes = bytes, fields = {} }
  if #bytes < LENGTH_WORD_BYTES then
    message.broken = { at = 0, why = "no length word: " .. #bytes .. " bytes" }
    return message
  end
  message.stated = unsigned32(bytes, 1)
  local last = math.min(message.stated, #bytes)
  local at = LENGTH_WORD_BYTES
  while at < last do
    if last - at < FIELD_HEADER_BYTES then
      message.broken = { at = at, why = "a field's header is cut" }
      break
    end
    local field = { at = at, type = unsigned16(bytes, at + 1), count = unsigned32(bytes, at + 3) }
    local begin = at + FIELD_HEADER_BYTES
    local name = fieldNames[field.type] or "field " .. field.type
    if field.count > last - begin then
      message.broken = { at = at, why = name .. " has " .. field.count .. " bytes, of which " .. last - begin .. " are there" }
      break
    end
    local known = types[field.type]
    local why = known and known[1](field, bytes:sub(begin + 1, begin + field.count))
    if why then
      message.broken = { at = at, why = name .. " " .. why }
      break
    end
    field.shownAs = known and known[2]
    message.fields[#message.fields + 1] = field
    at = begin + field.count
  end
  return message
end

-- Clauses of a registration text: {keyword, parts, at, length}, `at` counted from 0; or what is wrong.
local function readClauses(text)
  local clauses, at = {}, 1
  while true do
    at = text:find("[^ \t\r\n]", at)
    if not at then return clauses end
    local stop = text:find(";", at, true)
    if not stop then return clauses, "the last clause has no ';'" end
    local keyword, rest = text:sub(at, stop - 1):match("^([^:]*):(.*)$")
    if not keyword then return clauses, "a clause has no ':'" end
    local parts = {}
    for part in (rest .. ","):gmatch("([^,]*),") do
      parts[#parts + 1] = part:match("^[ \t\r\n]*(.-)[ \t\r\n]*$")
      if parts[#parts]:find("[:'\"%z]") then return clauses, "a part holds one of : ' \" or a zero byte" end
    end
    clauses[#clauses + 1] = { keyword = keyword:match("^(.-)[ \t\r\n]*$"), parts = parts, at = at - 1, length = stop - at + 1 }
    at = stop + 1
  end
end
