// The client of the language server: starts `kst lsp` and hands over what is edited.
'use strict';

const { window, workspace } = require('vscode');
const { LanguageClient } = require('vscode-languageclient/node');

let client;

async function activate() {
  const command = workspace.getConfiguration('kestrin').get('kst') || 'kst';
  const server = { command, args: ['lsp'] };
  client = new LanguageClient('kestrin', 'Kestrin', server, {
    documentSelector: [{ language: 'kestrin' }],
  });
  try {
    await client.start();
  } catch (error) {
    client = undefined;
    window.showErrorMessage(
      `Kestrin: \`${command} lsp' can't be started (${error.message}). The setting kestrin.kst says where kst is.`);
  }
}

async function deactivate() {
  if (client !== undefined) await client.stop();
}

module.exports = { activate, deactivate };
