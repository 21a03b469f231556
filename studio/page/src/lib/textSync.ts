import { Annotation, ChangeSet, type Text } from '@codemirror/state';

// Changes that come from the server and are not to be sent back.
export const fromServer = Annotation.define<boolean>();

// The one change that makes one text of another.
export function difference(from: string, to: string): { from: number; to: number; insert: string } {
  const shorter = Math.min(from.length, to.length);
  let head = 0;
  while (head < shorter && from[head] === to[head]) ++head;
  let tail = 0;
  while (tail < shorter - head && from[from.length - 1 - tail] === to[to.length - 1 - tail]) ++tail;
  return { from: head, to: from.length - tail, insert: to.slice(head, to.length - tail) };
}

// Keeps an editor and the server's text in step: what was typed and not yet confirmed is kept on top of
// whatever text the server has.
export class TextSync {
  private base = '';
  private unconfirmed: ChangeSet | null = null; // from the base to what the editor shows
  private sent: ChangeSet | null = null; // the part of it that is under way
  version = -1;

  isAhead(): boolean {
    return this.unconfirmed !== null;
  }

  // The user typed.
  typed(changes: ChangeSet): void {
    this.unconfirmed = this.unconfirmed ? this.unconfirmed.compose(changes) : changes;
  }

  // What is to be sent now; null when nothing is, or something is under way.
  take(document: Text): { text: string; version: number } | null {
    if (this.sent || !this.unconfirmed) return null;
    this.sent = this.unconfirmed;
    return { text: document.toString(), version: this.version };
  }

  // The server answered, after it told of a new text, if there was one. When it refused, because the text had
  // changed, the same is sent again on top; when it has nothing new, what was typed was taken back again.
  answered(ok: boolean, document: Text): void {
    if (ok && this.sent && document.toString() === this.base) this.unconfirmed = null;
    this.sent = null;
  }

  // The server has this text now: the change for the editor, or null when it shows it already.
  receive(text: string, version: number, document: Text): ChangeSet | null {
    this.version = version;
    const shown = document.toString();
    if (this.sent && this.unconfirmed) {
      const confirmed = this.sent.apply(textOf(this.base, document)).toString();
      this.sent = null;
      if (confirmed === text) {
        this.base = text;
        const rest = difference(text, shown);
        this.unconfirmed = text === shown ? null : ChangeSet.of(rest, text.length);
        return null;
      }
    }
    const remote = ChangeSet.of(difference(this.base, text), this.base.length);
    this.base = text;
    if (!this.unconfirmed) return shown === text ? null : ChangeSet.of(difference(shown, text), shown.length);
    const forEditor = remote.map(this.unconfirmed);
    this.unconfirmed = this.unconfirmed.map(remote, true);
    return forEditor;
  }
}

function textOf(text: string, like: Text): Text {
  return (like.constructor as unknown as { of(lines: string[]): Text }).of(text.split('\n'));
}
