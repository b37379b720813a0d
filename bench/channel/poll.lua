-- Polls the job in the environment variable JOB, with the token in TOKEN.
wrk.method = "POST"
wrk.body = '{"jsonrpc":"2.0","id":1,"method":"k8s.process","params":{"job_id":"' .. os.getenv("JOB") .. '"}}'
wrk.headers["Authorization"] = "Bearer " .. os.getenv("TOKEN")

local failed = 0
function response(status, headers, body)
  if status ~= 200 or not body:find('"result"', 1, true) then
    failed = failed + 1
    if failed == 1 then io.stderr:write("unexpected answer: " .. status .. " " .. body .. "\n") end
  end
end
