// What a program in TypeScript writes against the package's declarations. It is compiled, not run: every
// line must be right, and those that expect an error must be wrong.
import { load } from '../../build/wasm/web/package/quillon.js';
import type { BoardView, Camera, Inspection, Thing } from '../../build/wasm/web/package/quillon.js';

export async function use(bytes: Uint8Array, text: string): Promise<Inspection> {
  const quillon = await load();
  using grey = quillon.GreyImage.from(4, 2, new Uint8Array(8));
  using colour = new quillon.ColourImage();
  const { image, notes } = quillon.decode(bytes, 'tray.png', { depth: 8 });
  quillon.IxThreshold(grey, 100);
  quillon.IxColorToGray(colour, grey);
  const angle: number = quillon.IxFindGeoMatchModel(grey, quillon.IxCreateGeoTool(), 0.3, 0.8, new Int32Array(2), 10, -10, 1);
  const made = quillon.run('blobs', { min_area: 50 }, image);
  const things: readonly Thing[] = made.things ?? [];
  const views: BoardView[] = [{ name: notes[0] ?? '', corners: quillon.findBoard(grey, 9, 6) }];
  const camera: Camera = quillon.fitCamera(views, { width: 640, height: 480, square: 25 });
  quillon.files.write('/r/camera.json', new TextEncoder().encode(camera.file));
  using recipe = new quillon.Recipe(text, { folder: '/r' });
  recipe.beginPages('/pages');
  const inspection = recipe.inspectBytes(bytes, 'tray.png');
  const shown: boolean = recipe.addPage();
  recipe.endPages();
  const pixels: Uint8Array | undefined = recipe.picture(0)?.getPixels();
  const unit: string | undefined = quillon.table().quantities.find(({ name }) => name === 'area')?.unit;

  // @ts-expect-error a colour image is no grey one
  quillon.IxThreshold(colour, 100);
  // @ts-expect-error the bound is a number
  quillon.IxThreshold(grey, '100');
  // @ts-expect-error an argument is missing
  quillon.IxColorToGray(colour);
  // @ts-expect-error results are not written
  inspection.verdict = 'pass';
  // @ts-expect-error there is no such sample
  quillon.sample('teapot');
  // @ts-expect-error a board has two sides
  quillon.findBoard(grey, 9);
  console.log(angle, things.length, shown, pixels?.length, unit);
  return inspection;
}
