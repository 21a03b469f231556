// What the server lists of a folder.
export interface Listing {
  path: string; // empty: the folders that the studio was given
  up?: string;
  more?: boolean;
  entries: { name: string; path: string; folder: boolean }[];
}

export function parentOf(path: string): string {
  const cut = path.lastIndexOf('/');
  return cut > 0 ? path.slice(0, cut) : cut === 0 ? '/' : '.';
}

// What is in the folder or below it is named from there, as a graph's own files are.
export function relativeTo(path: string, folder: string): string {
  const start = folder.endsWith('/') ? folder : `${folder}/`;
  return path.startsWith(start) ? path.slice(start.length) : path;
}
