// Prints what this machine has: each adapter with its connectors, and the directory or address that comes with it.
"use strict";

for (const adapter of systemManager.adapters) {
  const connectors = [...adapter.connectors].map((connector) => connector.name);
  let where = "";
  if (adapter instanceof SystemAdapterStorage) where = adapter.directory?.path ?? "no directory";
  if (adapter instanceof SystemAdapterIP)
    where = [...adapter.unicastAddresses].map((entry) => `${entry.address.string}/${entry.prefixLength}`).join(" ");
  console.log(adapter.label || "(no label)", connectors.join(",") || "-", where);
}
