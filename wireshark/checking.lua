-- Says what is wrong with a message, by the rules of the server.

-- Fields are { type, most characters, shown as }. `answer` is the form of a request's answer.
local applName, attrGroup, sourceName = { T.applName, 20 }, { T.attrGroup, 32 }, { T.sourceName, 32 }
local switch = { T.status, shownAs = "subscription" }

local shapes = {
  [R.register] = { answer = "status", most = REQUEST_BYTES, applName, { T.applKey, 3 }, { T.response, shownAs = "registration" } },
  [R.online] = { answer = "handle", applName, attrGroup, sourceName },
  [R.unregister] = { answer = "status", applName },
  [R.offline] = { answer = "status", { T.handle } },
  [R.data] = { answer = "status", most = DATAGRAM_BYTES, pairs = true, { T.handle }, { T.dataCode } },
  [R.applications] = { answer = "response", optional = true, { T.applName } },
  [R.help] = { answer = "response", { T.applName } },
  [R.attributes] = { answer = "response", { T.applName } },
  [R.subscription] = { byDatagram = true, applName, attrGroup, switch },
  [R["status subscription"]] = { byDatagram = true, switch },
  [R.action] = { optional = true, { T.actionType }, { T.actionOwner }, { T.sourceName, shownAs = "node" }, { T.sourceName, shownAs = "subnode" }, { T.actionName }, { T.actionID }, { T.actionParms } },
  [R["action results"]] = { answer = "result", { T.actionID } },
  [R.deferral] = { most = REQUEST_BYTES, { T.actionID }, { T.peltaObject }, { T.currentTime }, { T.applKey }, { T.tableName }, { T.sourceName } },
}
local eventShape = { applName, attrGroup, sourceName, { T.requestType } }
local interruptShape = { { T.sourceName } }
local statusShape = { { T.status } }
local onlineShape = { { T.status }, { T.handle } }
local responseShape = { { T.response } }

-- Kind and shape of a message by its first field, and from which of its fields on the shape says more.
local function kindOf(message)
  local first = message.fields[1]
  if not first then return "unreadable" end
  if first.type == T.requestType then
    local shape = shapes[first.number]
    return shape and "request" or "unknown request", shape, 2
  elseif first.type == T.status then
    return "answer", (#message.fields > 1 or message.broken) and onlineShape or statusShape, 1
  elseif first.type == T.response then
    return "answer", responseShape, 1
  elseif first.type == T.applName then
    return "event", eventShape, 1
  elseif first.type == T.sourceName then
    return "interrupt", interruptShape, 1
  end
  return "unreadable"
end

-- Problems of a message: a list of { field or nothing, why }.
local function addProblem(message, why, field)
  message.problems[#message.problems + 1] = { field = field, why = why }
end

local function checkField(message, field, expected)
  if field.type ~= expected[1] then
    addProblem(message, (fieldNames[field.type] or "an unknown field") .. " where " .. fieldNames[expected[1]] .. " has to be", field)
    return
  end
  field.shownAs = expected.shownAs or field.shownAs
  if expected[2] and #field.text > expected[2] then
    addProblem(message, #field.text .. " characters, at most " .. expected[2] .. " are allowed", field)
  elseif expected == switch and field.number ~= 0 and field.number ~= 1 then
    addProblem(message, "neither 1, start, nor 0, stop", field)
  end
end

local function checkShape(message, shape, position)
  local fields = message.fields
  for i, expected in ipairs(shape) do
    local field = fields[position]
    if field then
      checkField(message, field, expected)
    elseif not (shape.optional and i == #shape) and not message.broken then
      addProblem(message, fieldNames[expected[1]] .. " is missing")
    end
    position = position + 1
  end
  for i = position, #fields do
    if not shape.pairs then
      addProblem(message, (fieldNames[fields[i].type] or "an unknown field") .. " is one too many", fields[i])
      return
    end
    checkField(message, fields[i], { (i - position) % 2 == 0 and T.attrName or T.attrValue })
    if #message.problems > 0 then return end
  end
  if shape.pairs and (#fields - position) % 2 == 0 and not message.broken then addProblem(message, "DCH_attrValue is missing", fields[#fields]) end
end

local function lengthOfPart(part, most)
  return part and #part >= 1 and #part <= most and not part:find("%c")
end

local providerTypes = {}
for name in ("APIS APPC ASFS FILE HTTP JDBC ODBC POST SNMP SOCK WBEM NODP"):gmatch("%u+") do
  providerTypes[name] = true
end

-- Returns the groups of a registration as { group = { name = { letter, size, help } } }, or nothing and
-- what is wrong.
local function readRegistration(text)
  local clauses, why = readClauses(text)
  if why then return nil, why end
  local appl = clauses[1]
  if not appl or appl.keyword ~= "appl" or #appl.parts ~= 2 then return nil, "the first clause is not appl:NAME,KEY" end
  if not lengthOfPart(appl.parts[1], 20) or not lengthOfPart(appl.parts[2], 3) or #appl.parts[2] ~= 3 then return nil, "a name in appl is not as long as it has to be" end
  local registration, seen, attributes = { name = appl.parts[1], key = appl.parts[2], groups = {} }, {}, nil
  for i = 2, #clauses do
    local keyword, parts = clauses[i].keyword, clauses[i].parts
    local name = parts[1]
    if keyword == "group" then
      if #parts ~= 1 or not lengthOfPart(name, 32) or registration.groups[name] then return nil, "a group's name is not in order" end
      if attributes and not next(attributes) then return nil, "a group has no attribute" end
      attributes = {}
      registration.groups[name] = attributes
    elseif keyword == "attr" then
      if not attributes then return nil, "an attribute is before the first group" end
      if #parts < 3 or #parts > 4 or not lengthOfPart(name, 32) or attributes[name] then return nil, "an attribute's name is not in order" end
      local size = parts[3]:find("^%d+$") and tonumber(parts[3])
      if not parts[2]:find("^[ACGLNDRTIS]$") or not size or size < 1 or size > 4096 then return nil, "letter or size of attribute " .. printable(name) end
      attributes[name] = { letter = parts[2], size = size, help = parts[4] or "" }
    elseif keyword == "type" or keyword == "help" then
      if seen[keyword] or #parts ~= 1 or keyword == "type" and not providerTypes[name] then return nil, "clause " .. keyword end
      seen[keyword] = true
    else
      return nil, "unknown keyword " .. printable(keyword)
    end
  end
  if not attributes then return nil, "no group" end
  if not next(attributes) then return nil, "a group has no attribute" end
  return registration
end

local function checkRegistration(message)
  local fields = message.fields
  local registration, why = readRegistration(fields[4].text)
  if not registration then
    addProblem(message, "registration: " .. why, fields[4])
  elseif registration.name ~= fields[2].text or registration.key ~= fields[3].text then
    addProblem(message, "its text names another application", fields[4])
  else
    message.registration = registration
  end
end

-- Where it goes and how it came is in `way`: isStream, toServer, isCut by the capture.
local function checkMessage(message, way)
  message.problems = {}
  local kind, shape, position = kindOf(message)
  message.kind = kind
  if way.isCut then return end
  if message.stated and message.stated ~= #message.bytes then addProblem(message, #message.bytes .. " bytes, the length word says " .. message.stated) end
  if kind == "unknown request" then addProblem(message, "unknown request", message.fields[1]) end
  if kind == "unreadable" and not message.broken then addProblem(message, "no message begins like this", message.fields[1]) end
  if way.toServer and not message.broken and kind ~= "request" and kind ~= "unknown request" and (kind ~= "answer" or way.isStream) then addProblem(message, "no request code") end
  if not shape then return end
  checkShape(message, shape, position)
  if shape.most and #message.bytes > shape.most then addProblem(message, "more than " .. shape.most .. " bytes") end
  if shape.byDatagram and way.isStream then addProblem(message, "a subscription has to be a datagram") end
  if kind == "request" and message.fields[1].number == R.register and #message.problems == 0 and not message.broken then checkRegistration(message) end
end

-- The values of a row, and whether its registration has them: an attribute it does not know is refused
-- with a status of its own, and what follows is not looked at.
local function checkValues(message, attributes)
  for i = 4, #message.fields - 1, 2 do
    local value = message.fields[i + 1]
    local registered = attributes[message.fields[i].text]
    if not registered then return end
    value.registered = registered
    if value.letter ~= registered.letter then
      addProblem(message, "letter " .. printable(value.letter) .. ", registered is " .. registered.letter, value)
    elseif #value.value > registered.size then
      addProblem(message, #value.value .. " bytes, registered are " .. registered.size, value)
    end
  end
end
