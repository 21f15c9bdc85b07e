// The boot, with what follows from its data.

/** The data of the page as plugins that know each other. */
export function readModel(data) {
  const plugins = data.plugins.map((row, number) => ({
    ...row,
    number,
    address: `#plugin-${number}`,
    ran: row.end !== null,
    onChain: false,
  }));
  const gates = data.gates.map((name) => ({ name, providers: [], requirers: [] }));
  for (const plugin of plugins) {
    for (const gate of plugin.provides) gates[gate].providers.push(plugin);
    for (const gate of required(plugin)) gates[gate].requirers.push(plugin);
  }
  for (const link of data.chain) plugins[link.plugin].onChain = true;
  return { ...data, plugins, gates, noun: data.is_daemon_run ? "script" : "plugin" };
}

/** The numbers of the gates that a plugin waits for. */
export function required(plugin) {
  const levels = Array.from({ length: plugin.levels }, (_, level) => level);
  return [...plugin.requires, ...levels];
}

/** Of two that ended together, the one whose name sorts first counts as the later one. */
function endedLater(one, other) {
  return one.end !== other.end ? one.end > other.end : one.name < other.name;
}

/** What a plugin waited for: {gate, plugin, last}; plugin is null for a gate without a provider. */
export function waitedFor(model, plugin) {
  const rows = [];
  let last = null;
  for (const number of required(plugin)) {
    const gate = model.gates[number];
    const providers = gate.providers.filter((provider) => provider !== plugin);
    if (providers.length === 0) rows.push({ gate, plugin: null });
    for (const provider of providers) {
      rows.push({ gate, plugin: provider });
      if (provider.ran && (last === null || endedLater(provider, last))) last = provider;
    }
  }
  return rows.map((row) => ({ ...row, last: row.plugin !== null && row.plugin === last }));
}

/** What waited for a plugin: {gate, plugin}. */
export function waitedForBy(model, plugin) {
  const rows = [];
  for (const number of plugin.provides) {
    const gate = model.gates[number];
    for (const requirer of gate.requirers) {
      if (requirer !== plugin) rows.push({ gate, plugin: requirer });
    }
  }
  return rows;
}

/** How many plugins shared the CLI executor when: [{start, end, sharers}], without its idle time. */
export function executorLoad(plugins) {
  const changes = [];
  for (const plugin of plugins) {
    if (!plugin.executor || !plugin.ran || plugin.run === 0) continue;
    changes.push([plugin.start, 1], [plugin.end, -1]);
  }
  changes.sort((one, other) => one[0] - other[0] || one[1] - other[1]);
  const load = [];
  let sharers = 0;
  let since = 0;
  for (const [moment, change] of changes) {
    if (sharers > 0 && moment > since) load.push({ start: since, end: moment, sharers });
    sharers += change;
    since = moment;
  }
  return load;
}
