-- SPDX-License-Identifier: Apache-2.0
-- wrk script: every request is a PUT of the backlight language mode as a JSON body. With an
-- argument N the requests go round channels 1..N: N instances, each with its own writer lock.
wrk.method = "PUT"
wrk.body = '{"mode": 2}'
wrk.headers["Content-Type"] = "application/json"

local channels, sent = 1, 0

function init(args)
    channels = tonumber(args[1]) or 1
end

function request()
    sent = sent + 1
    return wrk.format(nil, "/api/v1/itgt/sys-back-language?ChannelId=" .. (sent % channels + 1))
end
