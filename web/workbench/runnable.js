// As much of a recipe as can be run while it is being written: the steps before the first with a
// problem. Null where that is none.

// What shows a file that a step names, such as a good board, in place of a step's picture.
export const kFilePrefix = 'file: ';

// {list: 'step' | 'measurement', index, field, text} of a problem of `recipe check`; without a list
// where it is of the whole recipe.
export function placeOf(problem, recipe) {
  const found = problem.match(/^(step|measurement) (?:'(.*?)'|(\d+))(?:, field '(.*?)')?: ([^]*)$/);
  if (!found) {
    const field = problem.match(/^field '(.*?)': ([^]*)$/);
    return { list: null, index: -1, field: field?.[1] ?? null, text: field?.[2] ?? problem };
  }
  const [, list, name, number, field, text] = found;
  const entries = recipe[`${list}s`] ?? [];
  // Of two with one name, the later is the one that is wrong.
  const index = name === undefined ? Number(number) - 1 : entries.findLastIndex((entry) => entry.name === name);
  return { list, index, field: field ?? null, text };
}

export function runnable(recipe, problems) {
  if (!problems.length && recipe.steps.length) return recipe;
  const wrong = problems.map((problem) => placeOf(problem, recipe));
  const firstWrong = Math.min(...wrong.filter(({ list }) => list === 'step').map(({ index }) => Math.max(0, index)), Infinity);
  const steps = recipe.steps.slice(0, Math.min(firstWrong, recipe.steps.length));
  if (!steps.length) return null;
  const names = new Set(steps.map((step) => step.output ?? step.name));
  const wrongMeasurements = new Set(wrong.filter(({ list }) => list === 'measurement').map(({ index }) => index));
  const isThere = ({ input }, i) => !wrongMeasurements.has(i) && [input].flat().every((name) => names.has(name));
  const measurements = recipe.measurements.filter(isThere);
  // A recipe measures something: here, what needs no step.
  const nothing = { name: 'mean of the image', input: 'image', value: 'mean' };
  return { ...recipe, name: recipe.name || 'recipe', steps, measurements: measurements.length ? measurements : [nothing] };
}
