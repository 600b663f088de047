// Starts and ends the client of the extension in $EXTENSION with the program $KST, beside a stand-in
// for the editor that answers anything with nothing; prints what a user would be told.
'use strict';

const Module = require('module');
const fields = { [Symbol.iterator]: function* () {}, [Symbol.toPrimitive]: () => '', then: undefined };
const nothing = () => new Proxy(function () {}, {
  get: (target, name) => (name in fields ? fields[name] : name === 'prototype' ? target.prototype : nothing()),
  apply: nothing,
  construct: nothing,
});
const with_nothing_else = (known) =>
  new Proxy(known, { get: (target, name) => (name in target ? target[name] : nothing()) });
const editor = with_nothing_else({
  version: '1.100.0',
  Disposable: class { dispose() {} },
  env: with_nothing_else({ language: 'en' }),
  window: with_nothing_else({ visibleTextEditors: [], showErrorMessage: (text) => console.log(text) }),
  workspace: with_nothing_else({
    getConfiguration: () => ({ get: (name) => (name === 'kst' ? process.env.KST : undefined) }),
    textDocuments: [],
    workspaceFolders: undefined,
  }),
});
const load = Module._load;
Module._load = (name, ...rest) => (name === 'vscode' ? editor : load(name, ...rest));

const client = require(process.env.EXTENSION + '/dist/extension.js');
client.activate()
  .then(() => console.log('started'))
  .then(client.deactivate)
  .then(() => console.log('ended') || process.exit(0));
