// list.mjs FOLDER FILE: lists an MCAP file by the reader that other programs use, which is installed in the folder: its
// channels, how many messages each has, and their times.
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";

const { McapStreamReader } = createRequire(process.argv[2] + "/")("@mcap/core");
const reader = new McapStreamReader({ validateCrcs: true });
reader.append(readFileSync(process.argv[3]));
const channels = new Map();
for (let record; (record = reader.nextRecord()); ) {
  if (record.type === "Channel") channels.set(record.id, { topic: record.topic, metadata: record.metadata, times: [] });
  if (record.type === "Message") channels.get(record.channelId).times.push(record.logTime);
}
for (const [id, { topic, metadata, times }] of channels)
  console.log(id, topic, metadata.get("unit"), metadata.get("rate"), times.length, `${times[0]}`, `${times.at(-1)}`);
console.log(reader.done() ? "done" : "not done");
