import { HighlightStyle, StreamLanguage, syntaxHighlighting } from '@codemirror/language';
import { tags } from '@lezer/highlight';

// The text of a graph: sections, name=value lines, comments.
export const graphLanguage = StreamLanguage.define<{ value: boolean }>({
  name: 'graph',
  startState: () => ({ value: false }),
  token(stream, state) {
    if (stream.sol()) {
      state.value = false;
      stream.eatSpace();
      if (stream.match(/[#;].*/)) return 'comment';
      if (stream.match(/\[[^\]]*\]?/)) return 'heading';
      if (stream.match(/[^=]+/)) return 'propertyName';
    }
    if (!state.value && stream.eat('=')) {
      state.value = true;
      return 'operator';
    }
    stream.skipToEnd();
    return 'string';
  },
  languageData: { commentTokens: { line: '#' } },
});

export const graphColours = syntaxHighlighting(
  HighlightStyle.define([
    { tag: tags.comment, color: 'var(--text-soft)', fontStyle: 'italic' },
    { tag: tags.heading, color: 'var(--accent-text)', fontWeight: '600' },
    { tag: tags.propertyName, color: 'var(--text)' },
    { tag: tags.operator, color: 'var(--text-soft)' },
    { tag: tags.string, color: 'var(--value)' },
  ]),
);
