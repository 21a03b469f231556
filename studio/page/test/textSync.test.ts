import { ChangeSet, EditorState } from '@codemirror/state';
import { describe, expect, it } from 'vitest';
import { TextSync } from '../src/lib/textSync';

// An editor without a window.
class Editor {
  state = EditorState.create({ doc: '' });
  sync = new TextSync();

  type(from: number, to: number, insert: string): void {
    const changes = ChangeSet.of({ from, to, insert }, this.state.doc.length);
    this.state = this.state.update({ changes }).state;
    this.sync.typed(changes);
  }
  receive(text: string, version: number): void {
    const changes = this.sync.receive(text, version, this.state.doc);
    if (changes) this.state = this.state.update({ changes }).state;
  }
  get text(): string {
    return this.state.doc.toString();
  }
}

describe('text in step with the server', () => {
  it('takes what the server has when nothing was typed', () => {
    const editor = new Editor();
    editor.receive('[a]\nx=1\n', 1);
    editor.receive('[a]\nx=2\ny=3\n', 2);
    expect(editor.text).toBe('[a]\nx=2\ny=3\n');
    expect(editor.sync.isAhead()).toBe(false);
  });

  it('keeps what is typed while the last of it is under way', () => {
    const editor = new Editor();
    editor.receive('x=1', 1);
    editor.type(3, 3, '0');
    expect(editor.sync.take(editor.state.doc)).toEqual({ text: 'x=10', version: 1 });
    editor.type(4, 4, '0');
    expect(editor.sync.take(editor.state.doc)).toBeNull();
    editor.receive('x=10', 2);
    editor.sync.answered(true, editor.state.doc);
    expect(editor.text).toBe('x=100');
    expect(editor.sync.take(editor.state.doc)).toEqual({ text: 'x=100', version: 2 });
    editor.receive('x=100', 3);
    expect(editor.sync.isAhead()).toBe(false);
  });

  it('is in step again when what was typed was taken back', () => {
    const editor = new Editor();
    editor.receive('x', 1);
    editor.type(1, 1, '!');
    editor.type(1, 2, '');
    editor.sync.take(editor.state.doc);
    editor.sync.answered(true, editor.state.doc);
    expect(editor.sync.isAhead()).toBe(false);
  });

  it('joins what is typed with a change of the drawing elsewhere', () => {
    const editor = new Editor();
    editor.receive('# one\n[a]\n', 1);
    editor.type(5, 5, ' more');
    editor.receive('# one\n[b]\n', 2);
    expect(editor.text).toBe('# one more\n[b]\n');
    expect(editor.sync.take(editor.state.doc)).toEqual({ text: '# one more\n[b]\n', version: 2 });
  });

  it('sends again what was refused because the graph had changed', () => {
    const editor = new Editor();
    editor.receive('a', 1);
    editor.type(1, 1, '!');
    editor.sync.take(editor.state.doc);
    editor.sync.answered(false, editor.state.doc);
    editor.receive('ba', 2);
    expect(editor.text).toBe('ba!');
    expect(editor.sync.take(editor.state.doc)).toEqual({ text: 'ba!', version: 2 });
  });
});
