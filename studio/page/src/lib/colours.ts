// The colours of the page, which follow the light or dark look of the system.

const scheme = typeof matchMedia === 'function' ? matchMedia('(prefers-color-scheme: dark)') : undefined;
const known = new Map<string, string>();
scheme?.addEventListener('change', () => known.clear());

// The value of a variable such as "--curve-1" now; it is kept, since asking the page for each picture would take long.
export function colourOf(name: string): string {
  let colour = known.get(name);
  if (colour === undefined) known.set(name, (colour = getComputedStyle(document.documentElement).getPropertyValue(name).trim()));
  return colour;
}

// Called after each change; the answer ends that.
export function whenColoursChange(react: () => void): () => void {
  scheme?.addEventListener('change', react);
  return () => scheme?.removeEventListener('change', react);
}
