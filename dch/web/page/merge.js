// merge.js: rows that came two ways, each counted once.

/**
 * Those of the others that are missing among the known, in their order. A row is known by its time
 * and its handle; two rows may be alike in both. What one way brought n times and the other m times
 * was there max(n, m) times.
 */
export function missingRows(known, others) {
  const counts = new Map();
  const keyOf = (row) => `${row.time}/${row.handle}`;
  for (const row of known) {
    const key = keyOf(row);
    counts.set(key, (counts.get(key) ?? 0) + 1);
  }
  return others.filter((row) => {
    const key = keyOf(row);
    const left = counts.get(key) ?? 0;
    if (left) counts.set(key, left - 1);
    return !left;
  });
}
