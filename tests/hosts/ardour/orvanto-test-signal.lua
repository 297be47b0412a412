ardour {
	["type"]    = "dsp",
	name        = "Orvanto Test Signal",
	category    = "Utility",
	license     = "MIT",
	author      = "Amber Forge",
	description = [[A stereo test signal that depends on the transport position alone: decaying tones on the eighth notes at 120 BPM over two steady ones, the two sides apart. Silent while the transport stands.]]
}

function dsp_ioconfig ()
	return { { audio_in = 2, audio_out = 2 } }
end

function dsp_run (ins, outs, n_samples)
	local rolling = Session:transport_rolling ()
	local start = Session:transport_sample ()
	local rate = Session:nominal_sample_rate ()
	local left = outs[1]:array ()
	local right = outs[2]:array ()
	for i = 1, n_samples do
		if rolling then
			local n = start + i - 1
			local t = n / rate
			local decay = math.exp (-18 * (n % (rate / 4)) / rate)
			left[i] = 0.3 * decay * math.sin (2 * math.pi * 110 * t) + 0.1 * math.sin (2 * math.pi * 1234.5 * t)
			right[i] = 0.25 * decay * math.sin (2 * math.pi * 165 * t + 0.5) - 0.1 * math.sin (2 * math.pi * 987.6 * t)
		else
			left[i] = 0
			right[i] = 0
		end
	end
end
