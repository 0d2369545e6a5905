-- A message for the administrator, as all of the program's are: say(what, why).

return function(what, why) io.stderr:write("velm_agent: ", what, ": ", why, "\n") end
