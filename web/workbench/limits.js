// Limits by example.

const kRoom = 0.1;  // of the spread of good values, where no bad value says how far to go
const rounded = (value) => Number(value.toPrecision(6));

// {min, max, text} that accept all good values and, as far as they can, no bad one. A limit lies in
// the middle between the outermost good value and the nearest bad one beyond it; the margin is how far
// the good value is from it. Null without good values.
export function proposeLimits(good, bad) {
  if (!good.length) return null;
  const low = Math.min(...good), high = Math.max(...good);
  const below = bad.filter((value) => value < low), above = bad.filter((value) => value > high);
  const between = bad.length - below.length - above.length;
  const proposal = {};
  const margins = [];
  if (below.length) {
    const nearest = Math.max(...below);
    proposal.min = rounded((nearest + low) / 2);
    margins.push(low - proposal.min);
  }
  if (above.length) {
    const nearest = Math.min(...above);
    proposal.max = rounded((nearest + high) / 2);
    margins.push(proposal.max - high);
  }
  if (!below.length && !above.length) {
    const room = (high - low) * kRoom;
    Object.assign(proposal, { min: rounded(low - room), max: rounded(high + room) });
    margins.push(room);
  }
  const margin = `Margin ${rounded(Math.min(...margins))}.`;
  if (between) {
    proposal.text = `${margin} ${between} bad ${between === 1 ? 'image lies' : 'images lie'} among the good ones: this measurement does not tell them apart.`;
  } else {
    proposal.text = bad.length ? `${margin} All images that are marked are told apart.` : `${margin} No image is marked bad: the limits are around the good ones.`;
  }
  return proposal;
}

const passes = (value, { min, max }) => !(min !== undefined && !(value >= min)) && !(max !== undefined && !(value <= max));

// A sentence about the images that are marked.
export function wrongVerdicts(entries, limits) {
  const marked = entries.filter(({ mark }) => mark);
  if (!marked.length) return '';
  const accepts = marked.filter(({ value, mark }) => mark === 'bad' && passes(value, limits)).length;
  const rejects = marked.filter(({ value, mark }) => mark === 'good' && !passes(value, limits)).length;
  const count = (mark) => marked.filter((entry) => entry.mark === mark).length;
  return `${accepts} of ${count('bad')} bad accepted, ${rejects} of ${count('good')} good rejected by this measurement alone.`;
}
