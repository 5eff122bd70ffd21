// The recipe that the guide of the workbench comes to: the page's task leads there, and the guide's
// pictures show it.
import { readFileSync } from 'node:fs';

export function recipeOfGuide() {
  const guide = readFileSync(new URL('../../docs/guides/workbench.md', import.meta.url), 'utf8');
  return JSON.parse(guide.match(/^cat >.*\.json <<'END'\n(.*?)^END$/ms)[1]);
}
