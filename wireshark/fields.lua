-- What can be filtered for, and what Wireshark lets users set.

local f = {
  message = ProtoField.string("zord410.message", "Message"),
  length = ProtoField.uint32("zord410.length", "Length"),
  fieldType = ProtoField.uint16("zord410.field.type", "Type", base.DEC, fieldNames),
  fieldLength = ProtoField.uint32("zord410.field.length", "Length"),
  unknown = ProtoField.bytes("zord410.unknown", "Unknown field"),
  request = ProtoField.uint16("zord410.request", "Request (DCH_requestType)", base.HEX, requestNames),
  status = ProtoField.int32("zord410.status", "Status (DCH_status)", base.DEC, statuses),
  result = ProtoField.int32("zord410.result", "Result of the action (DCH_status)"),
  subscription = ProtoField.int32("zord410.subscription", "Subscription (DCH_status)", base.DEC, { [0] = "stop", [1] = "start" }),
  response = ProtoField.string("zord410.response", "Text (DCH_response)"),
  line = ProtoField.string("zord410.response.line", "Line"),
  registration = ProtoField.string("zord410.registration", "Registration (DCH_response)"),
  clause = ProtoField.string("zord410.registration.clause", "Clause"),
  application = ProtoField.string("zord410.application", "Application (DCH_applName)"),
  key = ProtoField.string("zord410.key", "Application key (DCH_applKey)"),
  source = ProtoField.string("zord410.source", "Source (DCH_sourceName)"),
  node = ProtoField.string("zord410.node", "Node (DCH_sourceName)"),
  subnode = ProtoField.string("zord410.subnode", "Subnode (DCH_sourceName)"),
  group = ProtoField.string("zord410.group", "Attribute group (DCH_attrGroup)"),
  tableName = ProtoField.string("zord410.table", "Table (DCH_tableName)"),
  attribute = ProtoField.none("zord410.attribute", "Attribute"),
  attributeName = ProtoField.string("zord410.attribute.name", "Name (DCH_attrName)"),
  attributeValue = ProtoField.none("zord410.attribute.value", "Value (DCH_attrValue)"),
  letter = ProtoField.string("zord410.attribute.letter", "Letter"),
  number = ProtoField.int64("zord410.attribute.number", "Number"),
  text = ProtoField.string("zord410.attribute.text", "Text"),
  bytes = ProtoField.bytes("zord410.attribute.bytes", "Bytes"),
  registeredSize = ProtoField.uint32("zord410.attribute.size", "Registered size"),
  help = ProtoField.string("zord410.attribute.help", "Help"),
  code = ProtoField.int16("zord410.code", "Data code (DCH_dataCode)"),
  handle = ProtoField.int32("zord410.handle", "Handle (DCH_handle)"),
  actionType = ProtoField.int16("zord410.action.type", "Action type (DCH_actionType)"),
  actionName = ProtoField.string("zord410.action.name", "Action (DCH_actionName)"),
  actionId = ProtoField.int32("zord410.action.id", "Action ID (DCH_actionID)"),
  parameters = ProtoField.string("zord410.action.parameters", "Parameters (DCH_actionParms)"),
  owner = ProtoField.string("zord410.action.owner", "Owner (DCH_actionOwner)"),
  currentTime = ProtoField.absolute_time("zord410.current_time", "Time (DCH_currentTime)", base.UTC),
  object = ProtoField.uint32("zord410.object", "Object (DCH_peltaObject)", base.HEX),
  responseIn = ProtoField.framenum("zord410.response_in", "Response in frame", base.NONE, frametype.RESPONSE),
  responseTo = ProtoField.framenum("zord410.response_to", "Response to", base.NONE, frametype.REQUEST),
  time = ProtoField.relative_time("zord410.time", "Time"),
  part = ProtoField.framenum("zord410.part", "Part in frame"),
  reassembledIn = ProtoField.framenum("zord410.reassembled_in", "Whole message in frame"),
}
channel.fields = f

local malformed = ProtoExpert.new("zord410.malformed", "Malformed message", expert.group.MALFORMED, expert.severity.ERROR)
local notWhole = ProtoExpert.new("zord410.not_whole", "Message not whole in this capture", expert.group.UNDECODED, expert.severity.WARN)
local refused = ProtoExpert.new("zord410.refused", "Request refused", expert.group.RESPONSE_CODE, expert.severity.NOTE)
channel.experts = { malformed, notWhole, refused }

channel.prefs.ports = Pref.range("Ports", "1919", "Ports of servers, UDP and TCP, such as 1919,49219", 65535)
