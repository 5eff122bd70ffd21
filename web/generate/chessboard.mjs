// A chessboard of 10 x 8 squares as a camera sees it, for pictures of the guide and for tests: a PGM file.

const kFocal = 800, kColumns = 10, kRows = 8;  // pixels, squares
const kSharp = 8;                              // how many times a square's edge fits into its side

const product = (a, b) => a.map((row) => b[0].map((_, column) => row.reduce((sum, value, i) => sum + value * b[i][column], 0)));
function turn([x, y, z]) {
  const [cx, cy, cz] = [x, y, z].map(Math.cos), [sx, sy, sz] = [x, y, z].map(Math.sin);
  return product(product([[cz, -sz, 0], [sz, cz, 0], [0, 0, 1]], [[cy, 0, sy], [0, 1, 0], [-sy, 0, cy]]), [[1, 0, 0], [0, cx, -sx], [0, sx, cx]]);
}
function inverse([[a, b, c], [d, e, f], [g, h, i]]) {
  const determinant = a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
  return [[e * i - f * h, c * h - b * i, b * f - c * e], [f * g - d * i, a * i - c * g, c * d - a * f], [d * h - e * g, b * g - a * h, a * e - b * d]]
    .map((row) => row.map((value) => value / determinant));
}

// Its middle lies before the camera at `distance` squares, turned by `angles` (about x, y and z).
export function drawChessboard({ width = 640, height = 480, angles = [0, 0, 0], distance = 16, at = [0, 0] }) {
  const r = turn(angles);
  const plane = [0, 1, 2].map((i) => [r[i][0], r[i][1], [at[0], at[1], distance][i] - (r[i][0] * kColumns + r[i][1] * kRows) / 2]);
  const back = inverse(plane);
  const pixels = Buffer.alloc(width * height);
  for (let y = 0, n = 0; y < height; ++y) {
    for (let x = 0; x < width; ++x, ++n) {
      const ray = [(x - (width - 1) / 2) / kFocal, (y - (height - 1) / 2) / kFocal, 1];
      const [u, v, w] = back.map((row) => row[0] * ray[0] + row[1] * ray[1] + row[2] * ray[2]);
      const column = u / w, row = v / w;
      const isOnBoard = column > 0 && row > 0 && column < kColumns && row < kRows;
      const squares = Math.sin(Math.PI * column) * Math.sin(Math.PI * row);
      const light = 1 - 0.25 * (x / width);
      pixels[n] = Math.round(light * (isOnBoard ? 125 + 85 * Math.tanh(kSharp * squares) : 215));
    }
  }
  return Buffer.concat([Buffer.from(`P5 ${width} ${height} 255\n`), pixels]);
}

// Views of it from several sides.
export const views = [
  { angles: [0.03, -0.02, 0.02] }, { angles: [0.45, 0, 0.1] }, { angles: [-0.4, 0.1, -0.2] },
  { angles: [0.05, 0.5, 0.05], at: [1, 0] }, { angles: [-0.1, -0.45, 0.3], at: [-1, 0.5] },
];
