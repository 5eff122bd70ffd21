// What the bundler makes of files that are no scripts.
declare module '*.md' {
  const text: string;
  export default text;
}
declare module 'worker-source' {
  const text: string;
  export default text;
}
declare module 'guide-recipe' {
  const recipe: { name: string; steps: { name: string; operation: string; [field: string]: any }[] };
  export default recipe;
}
