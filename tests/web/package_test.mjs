// The npm package in node: every export against the golden digests or against the kit, which
// reaches it another way; errors, ownership, growth. QUILLON_PACKAGE names the package's folder.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { Digest, Random, draw } from './golden_pictures.mjs';

const folder = pathToFileURL(`${process.env.QUILLON_PACKAGE}/`);
const { load } = await import(new URL('quillon.js', folder));
const { signatures } = await import(new URL('exports.js', folder));
const loaded = await load();
const { GreyImage, ColourImage } = loaded;

// The exports, each of which notes that it was called.
const called = new Set();
const quillon = { ...loaded };
for (const name of Object.keys(signatures)) {
  quillon[name] = (...values) => (called.add(name), loaded[name](...values));
}

// ---- golden digests ------------------------------------------------------------------------------

// What follows the images where the line does not say it: [parameters in the line] -> arguments.
const kMore = {
  IxThreshold: { '-300': [-300], 0: [0], 100: [100], 254: [254], 300: [300] },
  IxDoubleThreshold: { '-300': [-300, 200], 0: [0, 200], 100: [100, 200], 254: [254, 200], 300: [300, 200] },
  IxImageGainOffset: { 1.37: [1.37, -21.5], '-0.7': [-0.7, 300], '1e+300': [1e300, -1e300], 0.1: [0.1, 0.3] },
  IxImageScaling: { 2: [2, 2], 0.7: [0.7, 1.3], 3: [3, 0.51], 1.001: [1.001, 5] },
  IxImageTranslation: { 0: [0, 1], '-7': [-7, 3], 40: [40, -33] },
  IxImageRotation: { 36.8699: [36.86989764584402] },
  IxImageRotationBilinear: { 36.8699: [36.86989764584402] },
  IxImageShiftLeft: { undefined: [3] },
  IxImageShiftRight: { undefined: [3] },
};

function weights(size, most) {
  const random = new Random(size);
  for (const range of [2, 200, 40000, 2000000000]) {
    const drawn = Array.from({ length: size * size }, () => random.within(-range / 2, range));
    if (String(range) === most) return drawn;
  }
  return Array.from({ length: size * size }, (_, i) => {
    const x = i % size, y = Math.floor(i / size);
    return (x * x - 3 * x + 2 + size) * (7 - 2 * y);
  });
}

function argumentsOf(name, parameters) {
  const convolution = name.match(/Convolution(\d)/);
  if (convolution) return [weights(Number(convolution[1]), parameters)];
  return kMore[name]?.[parameters] ?? parameters?.split(',').map(Number) ?? [];
}

// The results of a line, in the order in which its digest takes them.
function digestOf(name, more, grey, second) {
  const digest = new Digest();
  const call = quillon[name];
  const images = signatures[name].takes.filter(({ type }) => type === 'GreyImage*').length;
  const result = new GreyImage();
  const copyOf = (pixels) => GreyImage.from(grey.width, grey.height, pixels.getPixels());
  const inPlace = copyOf(images === 3 ? second : grey);
  if (/^Ix(Dilation|Erosion|Opening|Closing|Morph)/.test(name)) {
    call(grey, result, ...more);
    digest.addPixels(grey).addPixels(result);
    call(inPlace, inPlace, ...more);
    return digest.addPixels(inPlace).text;
  }
  if (images === 3) {
    call(grey, second, result, ...more);
    call(grey, inPlace, inPlace, ...more);
    return digest.addPixels(result).addPixels(inPlace).text;
  }
  if (images === 2) {
    call(grey, result, ...more);
    digest.addStore(result);
    call(inPlace, inPlace, ...more);
    return digest.addPixels(inPlace).text;
  }
  call(inPlace, ...more);
  return digest.addPixels(inPlace).text;
}

test('exports on images equal the golden digests', () => {
  const lines = readFileSync(new URL('../golden/digests.txt', import.meta.url), 'utf8').split('\n');
  let compared = 0;
  for (const line of lines) {
    const found = line.match(/^(\w+)(?:\(([^)]*)\))? (\w+) (16x9|64x48) (\w{16})$/);
    if (!found) continue;
    const [, name, parameters, content, size, expected] = found;
    const takes = signatures[name]?.takes ?? [];
    // Of images alone, and numbers.
    if (!takes.length || takes.some(({ type }) => !/^(GreyImage\*|int\*?|double)$/.test(type))) continue;
    const [width, height] = size.split('x').map(Number);
    const grey = GreyImage.from(width, height, draw(width, height, content, 1));
    const second = GreyImage.from(width, height, draw(width, height, 'extremes', 5));
    assert.equal(digestOf(name, argumentsOf(name, parameters), grey, second), expected, line);
    ++compared;
    if (name === 'IxSobel') {
      const colour = ColourImage.from(width, height, draw(width, height, content, 9, 3));
      const made = new GreyImage();
      quillon.IxColorToGray(colour, made);
      const wanted = lines.find((other) => other.startsWith(`IxColorToGray ${content} ${size} `));
      assert.equal(`IxColorToGray ${content} ${size} ${new Digest().addPixels(made).text}`, wanted);
    }
  }
  assert.ok(compared > 1000, `${compared} lines`);
});

// ---- objects, files and tables, against the kit --------------------------------------------------

const near = (a, b, by = 1e-6) => assert.ok(Math.abs(a - b) <= by, `${a} is not ${b}`);

test('regions and blobs equal the operation of the kit', () => {
  const { image: tray } = quillon.sample('tray', { seed: 3, width: 640, height: 480 });
  const grey = quillon.run('gray', {}, tray).image;
  const { things } = quillon.run('blobs', { band: [124, 255], min_area: 100 }, grey);
  const wide = GreyImage.from(641, 480, new Uint8Array(641 * 480));
  const pixels = wide.getPixels(), from = grey.getPixels();
  for (let y = 0; y < 480; ++y) pixels.set(from.subarray(640 * y, 640 * (y + 1)), 641 * y);
  wide.setPixels(pixels);

  const region = quillon.CreateRLERegion();
  quillon.IxPointToRegion(region, [0, 0, 640, 0, 640, 479, 0, 479], 4);
  quillon.IxGrayBlobLabel(wide, region, 124, 255);
  const all = quillon.IxGetBlobCount(region);
  assert.ok(quillon.IxComputeAllBlobFeature(region));
  assert.ok(quillon.IxSelectBlobArea(region, 1e6, 100));
  assert.ok(quillon.IxSelectBlobWidth(region, 1000, 0) && quillon.IxSelectBlobHeight(region, 1000, 0));
  assert.ok(quillon.IxLocateBlobCenter(region, -1, 700, -1, 700));
  const list = Array(quillon.IxGetSelectBlobCount(region));
  assert.ok(quillon.IxGetBlobList(region, list));
  assert.deepEqual(list.map(({ area, centreX, angle }) => [area, centreX, angle]),
    things.map(({ area, x, angle }) => [area, x, angle]));
  assert.deepEqual(list.map(({ corners }) => corners), things.map(({ corners }) => corners));
  assert.ok(quillon.IxReSelectBlob(region));
  assert.equal(quillon.IxGetSelectBlobCount(region), all);

  const n = Array.from({ length: all }, (_, i) => i)
    .find((i) => quillon.IxGetnBlobArea(region, i) === things[0].area);
  const centre = new Float32Array(2), bound = new Int32Array(4), rectangle = new Float32Array(13);
  quillon.IxGetnBlobCenter(region, n, centre);
  quillon.IxGetnBlobBound(region, n, bound);
  near(centre[0], things[0].x, 1e-3);
  assert.deepEqual([...bound].sort(), [things[0].left, things[0].right, things[0].top, things[0].bottom].sort());
  assert.ok(quillon.IxGetBlobMinRect(region, n, rectangle));
  near(quillon.IxGetnBlobGrayMean(wide, region, n), things[0].mean);
  const mean = new Float64Array(3), whole = new Float64Array(3);
  quillon.IxGetnBlobColorMean(tray, region, n, mean);
  quillon.IxGetnRegionColorMean(tray, region, whole);
  assert.ok(mean[0] > whole[0] && quillon.IxGetnRegionGrayMean(wide, region) < things[0].mean);

  const holes = quillon.run('otsu', {}, grey).image;
  const filled = quillon.run('fill-holes', {}, holes).image;
  assert.ok(quillon.IxBinaryFillUp(holes, quillon.CreateRLERegion(), 255));
  assert.deepEqual(holes.getPixels(), filled.getPixels());

  assert.ok(quillon.IxImgAssignToRegion(region, wide));
  const bitmap = quillon.IxGetRegDisplay(region);
  const shown = quillon.bitmapBytes(bitmap, 4 * 481 * 480);
  assert.ok(bitmap && shown.some((byte) => byte > 0));
  quillon.DestroyRLERegion(region);
  assert.throws(() => quillon.IxGetBlobCount(region), /disposed/);
});

test('templates, edges and the pyramid equal the operations of the kit', () => {
  const { image: tray, truth } = quillon.sample('tray', { seed: 1 });
  const { image: bracket } = quillon.sample('bracket');
  quillon.files.write('/t/bracket.png', quillon.encodePng(bracket));
  const found = (operation, more, input = 'image') => {
    const recipe = new quillon.Recipe({
      name: 'find',
      steps: [{ name: 's', operation, input, template: 'bracket.png', ...more }],
      measurements: [{ name: 'n', input: 's', value: 'count' }],
    }, { folder: '/t' });
    return recipe.inspect(tray).steps[0].things;
  };
  const grey = quillon.run('gray', {}, tray).image;
  const pattern = quillon.run('gray', {}, bracket).image;
  const close = (result, thing) => {
    for (const key of ['x', 'y', 'angle', 'score']) near(result[key], thing[key]);
  };

  const tool = quillon.IxCreateNCCTool();
  assert.ok(quillon.IxCreateNCCMatchModel(pattern, tool, false));
  const deepest = quillon.IxGet_DefaultPyramidLevel(tool);
  assert.ok(quillon.IxSetPyramidLevel(tool, deepest));
  assert.equal(quillon.IxGet_CurrentPyramidLevel(tool), deepest);
  const wanted = found('match', { angle: [-180, 180], level: deepest });
  const count = quillon.IxFindNCCMatchModel(grey, tool, 0.7, 180, -180, 1, 1, true, 100);
  assert.equal(count, wanted.length);
  const results = [null];
  assert.ok(quillon.IxGetNCCMatchResults(tool, 0, results));
  close(results[0], wanted[0]);
  const level = new GreyImage(), reduced = new GreyImage();
  assert.ok(quillon.IxGet_Pyramid_GrayImage(tool, level, 0));
  assert.deepEqual(level.getPixels(), pattern.getPixels());
  quillon.IxImgPyramid(grey, reduced);
  assert.deepEqual([reduced.width, reduced.height], [grey.width >> 4, grey.height >> 4]);
  quillon.IxDestroyNCCModel(tool);

  const coloured = quillon.IxCreateNCCTool();
  assert.ok(quillon.IxCreateNCCMatchColorModel(bracket, coloured, false));
  const inColour = found('match-color', { angle: [-180, 180] }, 'color');
  assert.equal(quillon.IxFindNCCMatchColorModel(tray, coloured, 0.7, 180, -180, 1, 1, true, 100), inColour.length);
  assert.ok(quillon.IxGetNCCMatchResults(coloured, 0, results));
  close(results[0], inColour[0]);
  const copy = new ColourImage();
  assert.ok(quillon.IxGet_Pyramid_ColorImage(coloured, copy, 0));
  assert.ok(quillon.IxCreateNCCMatchColorModel_ROI(bracket, coloured));
  assert.equal(quillon.IxFindNCCMatchColorModel_ROI(copy, coloured), 1);

  const [{ x, y }] = truth;
  const part = quillon.run('crop', { left: Math.round(x) - 60, top: Math.round(y) - 50, width: 120, height: 100 }, grey).image;
  quillon.files.write('/t/bracket.png', quillon.encodePng(part));
  const edges = quillon.IxCreateGeoTool();
  assert.ok(quillon.IxCreateGeoMatchModel(part, edges, 60, 30));
  assert.ok(edges.model.count > 40 && edges.model.x.length === edges.model.count);
  const place = new Int32Array(2);
  const angle = quillon.IxFindGeoMatchModel(grey, edges, 0.3, 0.8, place, 10, -10, 1);
  const [located] = found('locate', { angle: [-10, 10], min_score: 0.3, greediness: 0.8, edges: [30, 60] });
  assert.deepEqual([place[0], place[1]], [located.x, located.y]);
  near(angle, located.angle);
  quillon.IxDestroyMatchModel(edges);
});

test('colour tables, flat field and lens write what they read', () => {
  const colour = ColourImage.from(16, 8, draw(16, 8, 'noise', 9, 3));
  const tables = [0, 1, 2].map(() => new Uint8Array(1 << 24));
  for (const [create, convert, channel, point, operation] of [
    ['IxCreateCToHSI', 'IxColorToHSI', 'IxGetHSI', 'IxGetHSIPoint', 'color-to-hsi'],
    ['IxCreateCToLab', 'IxColorToLab', 'IxGetCIELab', 'IxGetCIELabPoint', 'color-to-lab']]) {
    assert.equal(quillon[create](...tables), 1);
    const made = new ColourImage(), plane = new GreyImage(), bytes = new Uint8Array(3);
    assert.equal(quillon[convert](colour, made, ...tables), 1);
    assert.deepEqual(made.getPixels(), quillon.run(operation, {}, colour).image.getPixels());
    assert.equal(quillon[channel](made, plane, 1), 1);
    assert.equal(quillon[point](made, 3, 2, bytes), 1);
    assert.equal(bytes[1], plane.getPixels()[16 * 2 + 3]);
  }

  const light = GreyImage.from(64, 48, draw(64, 48, 'ramp', 1).map((value) => 100 + value / 4));
  assert.equal(quillon.IxFFCParaBuild(light, 200, 0, 64, 0, 48, '/flat.dat'), 1);
  const again = GreyImage.from(64, 48, light.getPixels()), region = new Int32Array(4);
  assert.equal(quillon.IxFFCParaLoad(again, region, '/flat.dat'), 1);
  assert.deepEqual([...region], [0, 64, 0, 48]);
  quillon.IxFFCCalibrate(again, ...region);
  assert.ok(again.getPixels().every((value) => value >= 199 && value <= 200));

  const { image: grid, truth } = quillon.sample('dot grid', { width: 900, height: 900 });
  const points = Int32Array.from(truth.flat(), Math.round);
  assert.equal(quillon.IxDistortionParaBuild(grid, points, truth.length, 56, 56, 10000, 10000, '/lens.dat'), 1);
  assert.equal(quillon.files.read('/lens.dat').length, 208);
  const corrected = GreyImage.from(900, 900, grid.getPixels());
  assert.equal(quillon.IxDistortionParaLoad(corrected, '/lens.dat'), 1);
  quillon.IxDistortionPreCalculate(corrected);
  assert.equal(quillon.IxDistortionCalibrate(corrected), 1);
  assert.notDeepEqual(corrected.getPixels(), grid.getPixels());
});

test('every export was called', () => {
  assert.equal(Object.keys(signatures).length, 117);
  assert.deepEqual(Object.keys(signatures).filter((name) => !called.has(name)), []);
});

// ---- what JavaScript adds ------------------------------------------------------------------------

test('wrong arguments are refused by name, and failures of the kit keep its words', () => {
  const image = new GreyImage();
  for (const [work, message] of [
    [() => quillon.IxSobel(image), /IxSobel: 2 arguments are expected, not 1/],
    [() => quillon.IxSobel(image, {}), /IxSobel, result: a GreyImage is expected/],
    [() => quillon.IxThreshold(image, 1.5), /threshold: a whole number/],
    [() => GreyImage.from(3, 2, new Uint8Array(5)), /5 bytes are given; 3 x 2 pixels need 6/],
    [() => GreyImage.from(1 << 20, 1 << 20, new Uint8Array(0)), /no memory/],
    [() => quillon.decode(new Uint8Array(9), '<img src=x>\n.png'), /cannot read image '<img src=x>/],
    [() => quillon.run('otsu', { above: 3 }, GreyImage.from(1, 1, [7])), /'above': has no meaning here/],
    [() => new quillon.Recipe('{'), /this is no JSON/],
    [() => new quillon.Part(GreyImage.from(64, 64, new Uint8Array(4096))), /edge/],
  ]) assert.throws(work, message);
  quillon.IxSobel(null, null);  // nothing happens
});

test('objects end once, and views survive growth', () => {
  const image = GreyImage.from(4, 1, [1, 2, 3, 4]);
  const kept = image.getPixels();
  const large = new GreyImage();
  large.create(12000, 12000);  // makes the memory grow, which moves it
  assert.deepEqual([...kept], [1, 2, 3, 4]);
  assert.deepEqual([...image.getPixels()], [1, 2, 3, 4]);
  large.dispose();
  large.dispose();
  assert.ok(large.isDisposed);
  assert.throws(() => large.width, /disposed/);
});

test('a taught part judges its template and is saved as a model that a recipe takes', () => {
  const { image: bracket } = quillon.sample('bracket');
  const part = new quillon.Part(quillon.run('gray', {}, bracket).image);
  assert.ok(part.pointCount > 40 && part.likeness < 1 && Array.isArray(part.doubts));
  quillon.files.write('/m/bracket.model', part.save());
  const recipe = new quillon.Recipe({
    name: 'find',
    steps: [{ name: 's', operation: 'find', input: 'image', template: 'bracket.model' }],
    measurements: [{ name: 'n', input: 's', value: 'count', min: 4, max: 4 }],
  }, { folder: '/m' });
  const { image: tray } = quillon.sample('tray', { seed: 1 });
  assert.equal(recipe.inspect(tray, 'tray').verdict, 'pass');
});
