-- One Ardour session with Orvanto on a stereo track, driven without a GUI by ardour7-lua:
--   session.lua create FORMAT PLUGIN-ID SESSION-DIR OUT-DIR BLOCK PROGRAM [INDEX=VALUE ...]
--   session.lua reopen FORMAT PLUGIN-ID SESSION-DIR OUT-DIR BLOCK
-- "create" builds the track (the test signal, then Orvanto), exports the signal alone as input/, chooses the
-- factory program from Ardour's preset list (none when PROGRAM is empty), sets the parameters by index,
-- writes the 253 values to values-created.txt, exports first/, saves and closes. "reopen" opens the saved
-- session, writes values-reopened.txt, exports second/ and saves the snapshot "reopened".
-- The last line printed is "DONE" when every step succeeded.
io.stdout:setvbuf ("no")

local mode, format, pluginId, sessionDir, outDir = arg[1], arg[2], arg[3], arg[4], arg[5]
local block, program = tonumber (arg[6]), arg[7]
local kName = "orvanto"
local kRate = 48000
local kFrames = 4 * kRate
local kParameters = 253
local kExportPreset = "5d0c3f2e-7a41-4c86-9b1e-0f6a3c2d8e41"
local kTrack = "Signal"
local kTypes = { lv2 = ARDOUR.PluginType.LV2, vst3 = ARDOUR.PluginType.VST3, vst2 = ARDOUR.PluginType.LXVST }

local function fail (message)
	print ("FAIL: " .. message)
	close_session ()
	os.exit (1)
end

local function export (name)
	local job = Session:simple_export ()
	if not job:set_preset (kExportPreset) then fail ("no export preset " .. kExportPreset) end
	job:set_folder (outDir .. "/" .. name)
	job:set_range (0, kFrames)
	if not job:run_export () then fail ("export " .. name .. " failed") end
end

-- The values as Ardour reads them through the plug-in's controls, one line each: index, name, value.
local function writeValues (processor, file)
	local plugin = processor:to_insert ():plugin (0)
	local out = io.open (outDir .. "/" .. file, "w")
	for i = 0, kParameters - 1 do
		local port = plugin:nth_parameter (i, true)
		local value = ARDOUR.LuaAPI.get_processor_param (processor, i, true)
		out:write (string.format ("%d %s %.9g\n", i, plugin:parameter_label (port), value))
	end
	out:close ()
end

-- The engine runs in real time; values set from here reach the plug-in with its next blocks.
local function settle ()
	ARDOUR.LuaAPI.usleep (500000)
end

AudioEngine:set_backend ("None (Dummy)", "", "")

if mode == "create" then
	if not create_session (sessionDir, kName, kRate) then fail ("no session at " .. sessionDir) end
	AudioEngine:set_buffer_size (block)
	local track = Session:new_audio_track (2, 2, nil, 1, kTrack, ARDOUR.PresentationInfo.max_order,
	                                       ARDOUR.TrackMode.Normal, true):front ()
	local signal = ARDOUR.LuaAPI.new_luaproc (Session, "Orvanto Test Signal")
	if signal:isnil () then fail ("no test signal script") end
	track:add_processor_by_index (signal, 0, nil, true)
	export ("input")

	local orvanto = ARDOUR.LuaAPI.new_plugin (Session, pluginId, kTypes[format], "")
	if orvanto:isnil () then fail ("Ardour found no " .. format .. " plug-in " .. pluginId) end
	track:add_processor_by_index (orvanto, 1, nil, true)
	local plugin = orvanto:to_insert ():plugin (0)
	local controls = 0
	for i = 0, plugin:parameter_count () - 1 do
		if plugin:parameter_is_control (i) and plugin:parameter_is_input (i) then controls = controls + 1 end
	end
	if controls ~= kParameters then fail (string.format ("Ardour shows %d parameters, not %d", controls, kParameters)) end

	if program ~= "" then
		local preset = plugin:preset_by_label (program)
		if not preset then fail ("no program \"" .. program .. "\" in Ardour's preset list") end
		if not plugin:load_preset (preset) then fail ("loading program \"" .. program .. "\" failed") end
	end
	for j = 8, #arg do
		local index, value = arg[j]:match ("^(%d+)=(.+)$")
		if not ARDOUR.LuaAPI.set_processor_param (orvanto, tonumber (index), tonumber (value)) then
			fail ("setting parameter " .. arg[j] .. " failed")
		end
	end
	settle ()
	writeValues (orvanto, "values-created.txt")
	export ("first")
	Session:save_state ("", false, false, false, false, false)
elseif mode == "reopen" then
	if not load_session (sessionDir, kName) then fail ("the saved session did not open") end
	AudioEngine:set_buffer_size (block)
	local track = Session:route_by_name (kTrack)
	if track:isnil () then fail ("no track " .. kTrack .. " in the saved session") end
	local orvanto = track:nth_plugin (1)
	if orvanto:isnil () or orvanto:display_name () ~= "Orvanto" then fail ("Orvanto is not on the track") end
	settle ()
	writeValues (orvanto, "values-reopened.txt")
	export ("second")
	Session:save_state ("reopened", false, false, false, false, false)
else
	fail ("unknown mode " .. tostring (mode))
end
close_session ()
print ("DONE")
