-- What is known of servers, requests and their answers.
--
-- Wireshark dissects each frame once, in order, and again whenever somebody looks at it. What is learnt
-- of a message is learnt the first time only, and kept in a record as it was then.

-- servers       by endpoint: applications as registered, sources by handle
-- hosts         by address: its one server, false when there are several
-- subscribers   by endpoint: the server that pushes to it
-- open          by conversation: the request without an answer, or on a connection queues of them
-- long          by conversation: the answer of which datagrams are still to come
-- records       by frame: what was known of each of its messages
-- parts         by frame: the long answer that it has a part of
local servers, hosts, subscribers, open, long, records, parts

function channel.init()
  servers, hosts, subscribers, open, long, records, parts = {}, {}, {}, {}, {}, {}, {}
end

local function serverAt(endpoint, host)
  local server = servers[endpoint]
  if not server then
    server = { applications = {}, sources = {} }
    servers[endpoint] = server
    hosts[host] = hosts[host] == nil and server
  end
  return server
end

-- Notes whose row it is, and the attributes that its group has now.
local function noteSource(record, server, handle)
  record.source = server and server.sources[handle] or nil
  local application = record.source and server.applications[record.source.application]
  record.attributes = application and application.groups[record.source.group]
end

-- Requests of a connection wait for their answers in queues, one for each form of answer.
local function newQueues()
  return { count = 0, status = { first = 1, last = 0 }, handle = { first = 1, last = 0 }, response = { first = 1, last = 0 }, result = { first = 1, last = 0 } }
end

local function push(queue, request)
  queue.last = queue.last + 1
  queue[queue.last] = request
end

local function pop(queue)
  local request = queue[queue.first]
  if request then
    queue[queue.first] = nil
    queue.first = queue.first + 1
  end
  return request
end

-- A connection answers its requests one after the other, so the answers to those before one that is
-- answered are not in the capture; but results of actions come when these end.
local function forgetBefore(queues, request)
  for _, form in ipairs({ "status", "handle", "response" }) do
    local queue = queues[form]
    while queue[queue.first] and queue[queue.first].place < request.place do
      pop(queue)
    end
  end
end

-- In which queues an answer's request can be, the likeliest first: any request can be refused.
local formsOf = { status = { "status", "response", "result" }, handle = { "handle" }, response = { "response" } }

local function takeFromStream(queues, form)
  for _, each in ipairs(formsOf[form]) do
    local request = pop(queues[each])
    if request and each ~= "result" then forgetBefore(queues, request) end
    if request then return request end
  end
end

local function takeRequest(way, form)
  local waiting = open[way.conversation]
  if not waiting then return nil end
  if way.isStream then return takeFromStream(waiting, form) end
  for _, each in ipairs(formsOf[form]) do
    if waiting.answer == each then
      open[way.conversation] = nil
      return waiting
    end
  end
end

-- A client that sends another datagram has given up waiting, and takes what comes for the answer to that.
local function keepOpen(way, request)
  if not way.isStream then
    open[way.conversation] = request
    return
  end
  local queues = open[way.conversation] or newQueues()
  open[way.conversation] = queues
  queues.count = queues.count + 1
  request.place = queues.count
  push(queues[request.answer], request)
end

local function formOf(message)
  if message.fields[1].type == T.response then return "response" end
  return message.fields[2] and "handle" or "status"
end

-- What a request that was answered with 0 changes.
local function conclude(server, request, message)
  if message.fields[1].number ~= 0 then return end
  if request.registration then
    server.applications[request.registration.name] = request.registration
  elseif request.application then
    server.applications[request.application] = nil
  elseif request.names then
    server.sources[message.fields[2].number] = request.names
  end
end

-- What is only needed until the answer comes stays out of the record.
local function learnRequest(message, way, record)
  local fields = message.fields
  local code = fields[1] and fields[1].type == T.requestType and fields[1].number or 0
  local shape = shapes[code]
  local request = { record = record, frame = way.frame, time = way.time, code = code, answer = not shape and "status" or shape.answer }
  local isRefused = #message.problems > 0 or message.broken or way.isCut
  if isRefused and way.isStream then request.answer = code == R.online and "handle" or "status" end
  if not isRefused then
    if code == R.register then
      request.registration = message.registration
    elseif code == R.unregister then
      request.application = fields[2].text
    elseif code == R.online then
      request.names = { application = fields[2].text, group = fields[3].text, source = fields[4].text }
    elseif code == R.offline or code == R.data then
      noteSource(record, way.server, fields[2].number)
    elseif shape.byDatagram then
      subscribers[way.client] = way.server
    end
  end
  if request.answer then keepOpen(way, request) end
end

local function learnAnswer(message, way, record)
  if message.broken or way.isCut or #message.problems > 0 then return end
  local request = takeRequest(way, formOf(message))
  if not request then return end
  request.record.responseIn = way.frame
  record.responseTo, record.time = request.frame, way.time - request.time
  record.code, record.source = request.code, request.record.source or request.names
  conclude(way.server, request, message)
end

-- What is learnt of a message the first time. A server's own answers are none of its requests.
local function learn(message, way)
  local record = { toServer = way.toServer }
  if message.kind == "answer" and not way.toServer then
    learnAnswer(message, way, record)
  elseif way.toServer and (message.kind ~= "answer" or way.isStream) then
    learnRequest(message, way, record)
  elseif message.kind == "request" and message.fields[1].number == R.data and message.fields[2] then
    noteSource(record, subscribers[way.receiver] or hosts[way.sender], message.fields[2].number)
  end
  return record
end
