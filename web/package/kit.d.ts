/** What lives in the module's memory: ended by `using`, dispose(), or the garbage collector. */
export interface Owned {
  dispose(): void;
  readonly isDisposed: boolean;
  [Symbol.dispose](): void;
}

export interface Image extends Owned {
  readonly width: number;
  readonly height: number;
  readonly bpp: number;
  readonly stride: number;
  /** An image whose memory could not be had keeps its size, without pixels. */
  readonly hasPixels: boolean;
  /** Makes it anew, all zero. */
  create(width: number, height: number): void;
  /** The same at a depth of 1 to 32 bits; colour images have 24. */
  allocate(bpp: number, width: number, height: number): void;
  copyFrom(image: this): void;
  /** A copy of grey values, or of blue, green and red in turn; rows from the top without gaps. */
  getPixels(): Uint8Array;
  setPixels(pixels: Uint8Array): void;
  /** A copy as a canvas takes it. */
  getRgba(): Uint8ClampedArray;
}
export interface GreyImage extends Image { readonly __kind?: 'grey' }
export interface ColourImage extends Image { readonly __kind?: 'colour' }
export interface ImageClass<Kind extends Image> {
  new (): Kind;
  /** An image of this size with these pixels, rows from the top without gaps. */
  from(width: number, height: number, pixels: Uint8Array): Kind;
}

export interface RLERegion extends Owned { readonly __kind?: 'region' }
export interface NccTool extends Owned { readonly __kind?: 'ncc' }
export interface GeoMatchTool extends Owned {
  /** The edge points that were taught; count 0 until then. */
  readonly model: GeoModelLevel;
}

export type Kind = 'picture' | 'colour picture' | 'blobs' | 'matches' | 'defects' | 'edges' | 'pairs' |
  'lines' | 'circles' | 'shapes' | 'regions';
export interface Argument {
  readonly name: string;
  readonly type: 'whole' | 'odd' | 'number' | 'flag' | 'choice' | 'file' | 'files' | 'range' |
    'whole-range' | 'wholes' | 'points' | 'rectangle' | 'box' | 'ring';
  readonly summary: string;
  /** What a value may be, in words. */
  readonly expected: string;
  readonly min: number;
  readonly max: number;
  readonly required: boolean;
  readonly choices?: readonly string[];
  /** What its files are; a template is a picture, or a model that was taught and kept. */
  readonly holds?: 'picture' | 'template' | 'parameters';
  readonly count?: number;
  readonly unit?: string;
  readonly excludes?: string;
  readonly default?: unknown;
}
export interface Operation {
  readonly name: string;
  readonly family: string;
  readonly summary: string;
  readonly inputs: readonly Kind[];
  readonly output: Kind;
  readonly arguments: readonly Argument[];
  readonly exports: readonly string[];
  /** Its picture has a scale: millimetres for a pixel. */
  readonly knowsScale: boolean;
}
export interface Table {
  readonly version: string;
  /** The files that decode reads. */
  readonly formats: string;
  readonly operations: readonly Operation[];
  readonly quantities: readonly {
    readonly name: string; readonly summary: string; readonly inputs: readonly Kind[];
    /** 'px', 'px2' or 'deg', as recipes write them; empty for plain numbers. */
    readonly unit: string;
    readonly decimals: number;
  }[];
  /** What can be measured between the things of two steps. */
  readonly betweens: readonly { readonly name: string; readonly summary: string; readonly unit: string }[];
  readonly whiches: readonly { readonly name: string; readonly summary: string }[];
}

/** What was found: what is measured of its kind. */
export interface Thing {
  readonly n: number;
  readonly left: number;
  readonly top: number;
  readonly right: number;
  readonly bottom: number;
  /** Of the turned rectangle, x and y in turn. */
  readonly corners: readonly number[];
  readonly [quantity: string]: number | readonly number[];
}

export interface Inspection {
  /** The line of results that `quillon run --json --objects` prints. */
  readonly line: string;
  readonly verdict: 'pass' | 'fail' | 'unreadable' | 'error';
  readonly error: string;
  readonly measurements: readonly {
    readonly name: string; readonly value: number | null; readonly shown: string;
    readonly passes: boolean;
  }[];
  readonly steps: readonly {
    readonly name: string;
    /** For Recipe.picture. */
    readonly slot: number;
    readonly kind: Kind;
    readonly milliseconds: number;
    /** Positions of one frame mean the same pixels; 0 is the image's. */
    readonly frame: number;
    readonly things?: readonly Thing[];
    readonly details: readonly { readonly heading: string; readonly value: number }[];
  }[];
}

export interface Recipe extends Owned {
  /** Verdict, measurements, what each step found and how long it took. */
  inspect(image: Image, name?: string): Inspection;
  /** The same for an image file of the module's own files. */
  inspectFile(path: string): Inspection;
  /** The same for the bytes of an image file, whatever they are. */
  inspectBytes(bytes: Uint8Array, name: string): Inspection;
  /** Begins pages as `quillon run --out` writes them, in a folder of the module's own files. */
  beginPages(folder: string): void;
  /** The page and the thumbnail of the last image; false: memory was too short for its pictures. */
  addPage(): boolean;
  /** The index over all of them. */
  endPages(): void;
  /** A copy of what a slot holds since the last image: 0 the image, 1 it in colour, then steps. */
  picture(slot: number): GreyImage | ColourImage | null;
}

/** A template as the finder was taught it, and what teaching thinks of it. */
export interface Part extends Owned {
  readonly by: 'edges' | 'gray';
  readonly width: number;
  readonly height: number;
  /** Columns and rows from the template's centre. */
  readonly points: readonly (readonly [number, number])[];
  readonly pointCount: number;
  /** The score of the best wrong place on the template itself, 0 to 1. */
  readonly likeness: number;
  /** Angles at which it looks the same; 0: all. */
  readonly symmetry: number;
  readonly doubts: readonly string[];
  /** As a model file, which recipes take in place of a picture. */
  save(): Uint8Array;
}

/** Column and row of the board, x and y in the picture. */
export type BoardCorner = readonly [column: number, row: number, x: number, y: number];
export interface BoardView {
  readonly name: string;
  readonly corners: readonly BoardCorner[];
}
/** A camera and its lens; residuals are in pixels. */
export interface Camera {
  readonly rms: number;
  readonly worst: number;
  /** Why the residuals are too large to measure with; null: they are not. */
  readonly doubt: string | null;
  readonly mmPerPixel: number;
  /** What `quillon calibrate` writes, and what recipes take. */
  readonly file: string;
  readonly views: readonly {
    readonly rms: number; readonly worst: number;
    /** Where the fit has each corner. */
    readonly fitted: readonly (readonly [x: number, y: number])[];
  }[];
}

export interface Kit {
  readonly GreyImage: ImageClass<GreyImage>;
  readonly ColourImage: ImageClass<ColourImage>;
  /** Operations with their arguments, what can be measured, formats. */
  table(): Table;
  /** An operation of the table on one image or two. Throws KitError, as all of the kit does. */
  run(operation: string, values: Readonly<Record<string, unknown>> | null, a: Image, b?: Image):
    { image: Image; things?: undefined } | { things: readonly Thing[]; image?: undefined };
  /** An image file's bytes. */
  decode(bytes: Uint8Array, name?: string, options?: { depth?: number }): { image: Image; notes: string[] };
  encodePng(image: Image): Uint8Array;
  /** A drawn image, and what is on it. */
  sample(name: 'tray' | 'bracket' | 'board' | 'tested board' | 'dot grid',
    options?: { seed?: number; width?: number; height?: number }): { image: Image; truth: unknown };
  /** The inner corners of a chessboard, columns and rows of them; throws where too few are seen. */
  findBoard(image: Image, columns: number, rows: number, name?: string): BoardCorner[];
  /** From views of one board in pictures of one size; the first view's lies where is measured. */
  fitCamera(views: readonly BoardView[],
    options: { width: number; height: number; square: number }): Camera;
  readonly Recipe: {
    /** Files that the recipe names lie in `folder` of the module's own files. */
    new (recipe: string | object, options?: { folder?: string }): Recipe;
    /** All that is wrong with a recipe; empty: nothing. */
    check(recipe: string | object): string[];
  };
  readonly Part: {
    new (pattern: GreyImage, options?: { by?: 'edges' | 'gray'; mask?: GreyImage | null; name?: string }): Part;
  };
  readonly KitError: new (message: string) => Error;
  /** The module's own files, which recipes and calibrations read and write. */
  readonly files: {
    write(path: string, bytes: Uint8Array): void;
    read(path: string): Uint8Array;
    remove(path: string): void;
    /** The names in a folder. */
    list(path: string): string[];
    exists(path: string): boolean;
  };
  /** Of a bitmap that IxGetRegDisplay returned: rows from the bottom, each padded to 4 bytes. */
  bitmapBytes(bitmap: number, size: number): Uint8Array;
}
