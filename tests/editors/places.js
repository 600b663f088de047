// Writes the innermost scopes of the grammar at places: lines of $PLACES are
// "file<Tab>line<Tab>column", columns count bytes. Packages and grammar are in $EXTENSION.
'use strict';

const fs = require('fs');
const path = require('path');
const { createRequire } = require('module');
const extension = process.env.EXTENSION + '/';
const load = createRequire(extension);
const textmate = load('vscode-textmate');
const oniguruma = load('vscode-oniguruma');

// Of each line of a file its text and its tokens.
function tokenized(grammar, file) {
  let state = textmate.INITIAL;
  return fs.readFileSync(file, 'latin1').split('\n').map((bytes) => {
    const text = Buffer.from(bytes, 'latin1').toString('utf8');
    const { tokens, ruleStack, stoppedEarly } = grammar.tokenizeLine(text, state);
    if (stoppedEarly) throw new Error(`${file}: the grammar takes too long`);
    state = ruleStack;
    return { bytes, tokens };
  });
}

async function main() {
  await oniguruma.loadWASM(fs.readFileSync(load.resolve('vscode-oniguruma/release/onig.wasm')).buffer);
  const name = path.join(extension, 'syntaxes', 'kestrin.tmLanguage.json');
  const registry = new textmate.Registry({
    onigLib: Promise.resolve({
      createOnigScanner: (patterns) => new oniguruma.OnigScanner(patterns),
      createOnigString: (text) => new oniguruma.OnigString(text),
    }),
    loadGrammar: async () => textmate.parseRawGrammar(fs.readFileSync(name, 'utf8'), name),
  });
  const grammar = await registry.loadGrammar('source.kestrin');
  const files = new Map();
  const found = fs.readFileSync(process.env.PLACES, 'utf8').trim().split('\n').map((place) => {
    const [file, line, column] = place.split('\t');
    if (!files.has(file)) files.set(file, tokenized(grammar, file));
    const { bytes, tokens } = files.get(file)[line - 1];
    const at = Buffer.from(bytes.slice(0, column - 1), 'latin1').toString('utf8').length;
    const token = tokens.find((one) => one.startIndex <= at && at < one.endIndex);
    return token.scopes[token.scopes.length - 1];
  });
  fs.writeFileSync(process.env.FOUND, found.join('\n') + '\n');
}

console.error = (...words) => { throw new Error(words.join(' ')); }; // a grammar in a loop says so there
main().catch((error) => { process.stdout.write(error.stack + '\n'); process.exit(1); });
