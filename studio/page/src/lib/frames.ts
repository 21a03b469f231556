// When views paint and when they say in words what they show: each picture of the browser once, and words some times a second
// for all views together, so that the page is laid out anew no more often.

const WORDS_INTERVAL = 200; // ms: figures that change faster cannot be read
const painting = new Set<() => void>();
const telling = new Set<() => void>();
let frame = 0;
let timer = 0;
let told = -Infinity;

function run(work: Set<() => void>): void {
  const now = [...work];
  work.clear();
  for (const each of now) each();
}

// In the browser's next picture, once however often it is asked for.
export function paintSoon(paint: () => void): void {
  painting.add(paint);
  frame ||= requestAnimationFrame(() => {
    frame = 0;
    run(painting);
  });
}

// Together with the words of the other views.
export function tellSoon(tell: () => void): void {
  telling.add(tell);
  timer ||= window.setTimeout(
    () => {
      timer = 0;
      told = performance.now();
      run(telling);
    },
    Math.max(0, told + WORDS_INTERVAL - performance.now()),
  );
}

export function forget(...works: (() => void)[]): void {
  for (const work of works) {
    painting.delete(work);
    telling.delete(work);
  }
}
