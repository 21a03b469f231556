"""What docs/python.md shows, run from beginning to end in the folder that it is started in."""

import sigweave

g = sigweave.Graph()  # or sigweave.Graph("tone.graph")
g.add("Generator", "tone", frequency=440, unit="V")
g.add("Filter", "lp", corner="3 kHz")
g.add("Statistics", "levels")
g["lp"].order = 8  # parameters are attributes; a wrong name raises AttributeError
g.connect("tone.Signal", "lp.Signal")
g.connect("lp.Signal", "levels.Signal")
g.check()  # all mistakes, as a list
g.save("tone.graph")  # the text that the program reads; .xml for a document
print(g)

report = sigweave.run("tone.graph", set={"lp.corner": "2 kHz"}, keep=["lp.Signal"], progress=True)
report.verdict  # "complete"
report.results.value("rms")  # one figure; report.results is the table, .to_pandas() makes a DataFrame
report.warnings, report.gaps, report.json
low = report["lp.Signal"]  # an array
low.unit, low.rate, low.start  # "V", 48000.0, seconds since 1970
low.time()  # seconds after the start, with the gaps
low.between(0.5, 1.0)  # by time; slices by number keep unit, rate and start too
print(low.unit, low.rate, report.verdict)

for block in sigweave.stream("tone.graph", "lp.Signal"):
    print(block.number, abs(block.values).max(), block.unit)

g.add("Recorder", "recorder", file="x.mcap", overwrite=True)
g.connect("lp.Signal", "recorder.Signal 1")
g.run()
recording = sigweave.open("x.mcap")
sine = recording["sine"]  # stays in the file
sine[4800:9600], sine[-1], len(sine)  # parts of it, by number
sine.between(0.2, 0.3)  # by time, in seconds after the start
sine.blocks  # the table of its blocks: first value, count, start, rate, state
recording.gaps, recording.missing, recording.facts["graph"]
print(recording)
