-- What things are called, and limits.

local channel = Proto("zord410", "Data Channel")

local statuses = {
  [0] = "done",
  [1] = "bad argument, or no status in the answer",
  [2] = "not sent whole, or a field missing in the answer",
  [3] = "a required text is null",
  [4] = "no memory, or no work buffer",
  [5] = "no answer from the DCH",
  [100] = "malformed message",
  [101] = "unknown application",
  [102] = "unknown attribute group",
  [103] = "unknown attribute",
  [104] = "unknown handle",
  [105] = "not stored",
  [106] = "unknown action",
}

-- As the server's log has them.
local requestNames = {
  [0x1010] = "register",
  [0x1015] = "online",
  [0x1020] = "unregister",
  [0x1025] = "offline",
  [0x1030] = "data",
  [0x2040] = "applications",
  [0x2045] = "help",
  [0x2050] = "attributes",
  [0x2060] = "subscription",
  [0x2070] = "status subscription",
  [0x2080] = "action",
  [0x2090] = "action results",
  [0x20A0] = "deferral",
}

local fieldNames = {
  [16] = "DCH_requestType",
  [17] = "DCH_status",
  [18] = "DCH_response",
  [32] = "DCH_applName",
  [33] = "DCH_applKey",
  [34] = "DCH_sourceName",
  [35] = "DCH_attrGroup",
  [36] = "DCH_tableName",
  [80] = "DCH_attrName",
  [81] = "DCH_attrValue",
  [112] = "DCH_dataCode",
  [128] = "DCH_handle",
  [256] = "DCH_actionType",
  [272] = "DCH_actionName",
  [288] = "DCH_actionID",
  [304] = "DCH_actionParms",
  [336] = "DCH_actionOwner",
  [352] = "DCH_currentTime",
  [368] = "DCH_peltaObject",
}

-- Codes by these words: R.data, R["action results"], T.attrName.
local R, T = {}, {}
for code, name in pairs(requestNames) do
  R[name] = code
end
for code, name in pairs(fieldNames) do
  T[name:match("^DCH_(.*)$")] = code
end

local STREAM_MESSAGE_BYTES = 1048576
local DATAGRAM_BYTES = 8192 -- also of a row
local REQUEST_BYTES = 4096 -- of a registration and a deferral
local ANSWER_BYTES = 131072 -- as datagrams
local ANSWER_PAUSE_SECONDS = 20 -- for which a client waits for the next datagram of an answer
local LENGTH_WORD_BYTES, FIELD_HEADER_BYTES = 4, 6
local SHOWN_FIELDS = 10000 -- of a message: more than Wireshark's tree holds may come
local SHOWN_CHARACTERS = 200 -- of a message in a line
