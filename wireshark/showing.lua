-- Puts a message into Wireshark's tree and columns.

local function rangeOf(tvb, at, length)
  return tvb:range(at, math.min(length, tvb:len() - at))
end

local function addGenerated(tree, field, ...)
  tree:add(field, ...):set_generated()
end

local function addHeader(item, tvb, field)
  item:add(f.fieldType, tvb:range(field.at, 2))
  item:add(f.fieldLength, tvb:range(field.at + 2, 4))
end

local function textValue(tree, field, range)
  return tree:add_packet_field(field, range, ENC_UTF_8)
end

local numberSizes = { [1] = true, [2] = true, [4] = true, [8] = true }

-- Texts for D, R and T; else signed numbers in the byte order of the provider, which is taken to be that
-- of nearly all machines.
local function showValue(item, tvb, field)
  local begin, count = field.at + FIELD_HEADER_BYTES + 1, #field.value
  textValue(item, f.letter, tvb:range(begin - 1, 1))
  if field.registered then
    addGenerated(item, f.registeredSize, field.registered.size)
    if field.registered.help ~= "" then addGenerated(item, f.help, printable(field.registered.help)) end
  end
  if field.letter:find("[DRT]") then
    local text = upToZero(field.value)
    if isUtf8(text) then
      if count > 0 then textValue(item, f.text, tvb:range(begin, count)) else item:add(f.text, "") end
      return printable(text)
    end
  elseif numberSizes[count] then
    local range = tvb:range(begin, count)
    local number = count == 8 and range:le_int64() or Int64.new(range:le_int())
    item:add(f.number, range, number)
    return tostring(number)
  end
  if count > 0 then item:add(f.bytes, tvb:range(begin, count)) end
  return count .. " bytes"
end

local function showResponse(item, tvb, field)
  local at = 0
  for line in field.text:gmatch("[^\n]*\n?") do
    if #line > 0 then textValue(item, f.line, tvb:range(field.at + FIELD_HEADER_BYTES + at, #line)) end
    at = at + #line
  end
end

local function showRegistration(item, tvb, field)
  for _, clause in ipairs((readClauses(field.text))) do
    textValue(item, f.clause, tvb:range(field.at + FIELD_HEADER_BYTES + clause.at, clause.length))
  end
end

-- Adds the field, and returns its item.
local function showField(tree, tvb, field)
  local begin = field.at + FIELD_HEADER_BYTES
  local whole = rangeOf(tvb, field.at, FIELD_HEADER_BYTES + field.count)
  local shown = f[field.shownAs or "unknown"]
  local item
  if field.shownAs == "attributeValue" then
    item = tree:add(shown, whole)
    field.label = showValue(item, tvb, field)
    item:append_text(": " .. field.label)
  elseif field.shownAs == "currentTime" then
    item = tree:add(shown, tvb:range(begin, 4), NSTime.new(field.number, 0))
  elseif field.count == 0 then
    item = field.text and tree:add(shown, whole, "") or tree:add(shown, whole)
  elseif field.text then
    item = textValue(tree, shown, tvb:range(begin, field.count))
  else
    item = tree:add(shown, tvb:range(begin, field.count))
  end
  addHeader(item, tvb, field)
  if field.shownAs == "response" then showResponse(item, tvb, field) end
  if field.shownAs == "registration" then showRegistration(item, tvb, field) end
  return item
end

local function showFields(tree, tvb, message)
  local fields = message.fields
  local i = 1
  while i <= math.min(#fields, SHOWN_FIELDS) do
    local field, value = fields[i], fields[i + 1]
    if field.type == T.attrName and value and value.type == T.attrValue then
      local first = field.at
      local item = tree:add(f.attribute, tvb:range(first, value.at + FIELD_HEADER_BYTES + value.count - first))
      field.item = showField(item, tvb, field)
      value.item = showField(item, tvb, value)
      item:set_text("Attribute " .. printable(field.text) .. ": " .. value.label)
      i = i + 2
    else
      field.item = showField(tree, tvb, field)
      i = i + 1
    end
  end
  if #fields > SHOWN_FIELDS then tree:add(tvb:range(0, 0), #fields .. " fields; the first " .. SHOWN_FIELDS .. " are shown") end
end

local function showProblems(tree, message, way)
  for _, problem in ipairs(message.problems) do
    (problem.field and problem.field.item or tree):add_proto_expert_info(malformed, printable(problem.why))
  end
  if way.isCut then
    tree:add_proto_expert_info(notWhole, "The capture has " .. #message.bytes .. " bytes of it")
  elseif message.broken then
    tree:add_proto_expert_info(malformed, printable(message.broken.why))
  end
end

-- The words of a message for column and tree.
local function titleOf(message, record)
  local kind, first = message.kind, message.fields[1]
  if kind == "answer" and record.code then return "Answer to " .. (requestNames[record.code] or "unknown request") end
  if kind == "answer" then return "Answer" end
  if kind == "event" then return "Status event" end
  if kind == "interrupt" then return "Interrupt" end
  if kind == "request" and first.number == R.data and not record.toServer then return "Pushed row" end
  if kind == "request" then return "Request " .. requestNames[first.number] end
  return kind == "unknown request" and "Unknown request" or "Unreadable message"
end

-- What a line has room for, by how a field is shown.
local brief = {
  status = function(field) return field.number .. " (" .. (statuses[field.number] or "unknown status") .. ")" end,
  result = function(field) return "result " .. field.number end,
  handle = function(field) return "handle " .. field.number end,
  subscription = function(field) return field.number == 1 and "start" or "stop" end,
  actionId = function(field) return tostring(field.number) end,
  attributeName = function(field, after) return printable(field.text) .. "=" .. (after and after.label or "") end,
}
for _, name in ipairs({ "application", "group", "source", "node", "actionName" }) do
  brief[name] = function(field) return printable(field.text) end
end

local function namesOf(source)
  return printable(source.application .. " " .. source.group .. " " .. source.source)
end

local function detailsOf(message, record)
  local words, length = { record.source and namesOf(record.source) }, 0
  for i, field in ipairs(message.fields) do
    local say = brief[field.shownAs]
    if say then
      words[#words + 1] = say(field, message.fields[i + 1])
      length = length + #words[#words]
      if length > SHOWN_CHARACTERS then break end
    end
  end
  if message.kind == "event" and message.fields[4] then words[#words + 1] = requestNames[message.fields[4].number] end
  return table.concat(words, " ")
end

local function showColumns(pinfo, text)
  pinfo.cols.protocol = "zord410"
  if pinfo.private.zord410 == "1" then pinfo.cols.info:set("") end
  if tonumber(pinfo.private.zord410) <= 5 then
    pinfo.cols.info:append((pinfo.private.zord410 == "1" and "" or " | ") .. text)
    pinfo.cols.info:fence()
  end
end

local function showLinks(tree, record)
  if record.source then
    addGenerated(tree, f.application, printable(record.source.application))
    addGenerated(tree, f.group, printable(record.source.group))
    addGenerated(tree, f.source, printable(record.source.source))
  end
  if record.responseIn then addGenerated(tree, f.responseIn, record.responseIn) end
  if record.responseTo then
    addGenerated(tree, f.responseTo, record.responseTo)
    local seconds = math.floor(record.time)
    addGenerated(tree, f.time, NSTime.new(seconds, math.floor((record.time - seconds) * 1e9 + 0.5)))
  end
end

local function showMessage(tvb, pinfo, root, message, record, way)
  local tree = root:add(channel, tvb:range(0, tvb:len()))
  if record.code == R["action results"] and message.kind == "answer" and message.fields[1].type == T.status then message.fields[1].shownAs = "result" end
  if message.stated then tree:add(f.length, tvb:range(0, LENGTH_WORD_BYTES)) end
  showFields(tree, tvb, message)
  local title, details = titleOf(message, record), detailsOf(message, record)
  addGenerated(tree, f.message, title)
  tree:append_text(", " .. title .. (details ~= "" and ": " .. details or ""))
  showProblems(tree, message, way)
  local first = message.fields[1]
  if message.kind == "answer" and first.shownAs == "status" and first.number ~= 0 and first.item then
    first.item:add_proto_expert_info(refused, statuses[first.number] or "unknown status")
  end
  showLinks(tree, record)
  local mark = (#message.problems > 0 or message.broken) and not way.isCut and " [malformed]" or ""
  showColumns(pinfo, title .. (details ~= "" and ": " .. details or "") .. mark)
end
