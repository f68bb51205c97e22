-- wrk script: every request is a PUT of the backlight language mode as a JSON body.
wrk.method = "PUT"
wrk.body = '{"mode": 2}'
wrk.headers["Content-Type"] = "application/json"
