"""A client of the language server, for its tests and its bench."""
import json
import subprocess

URI = "file:///a.kst"


class Client:
    def __init__(self, kst, *words, capabilities=None, **options):
        self.server = subprocess.Popen([kst, "lsp", *words], stdin=subprocess.PIPE, stdout=subprocess.PIPE, **options)
        self.last = 0
        self.told = {}  # uri -> diagnostics, as told last
        if capabilities is not None:
            self.can = self.ask("initialize", capabilities=capabilities)["result"]["capabilities"]
            self.tell("initialized")

    def send(self, *messages):
        for message in messages:
            body = message if isinstance(message, bytes) else json.dumps({"jsonrpc": "2.0", **message}).encode()
            self.server.stdin.write(b"Content-Length: %d\r\n\r\n" % len(body) + body)
        self.server.stdin.flush()

    def receive(self):
        """The next message; None at the end."""
        length = None
        while line := self.server.stdout.readline().strip():
            if line.lower().startswith(b"content-length:"):
                length = int(line.split(b":")[1])
        if length is None:
            return None
        message = json.loads(self.server.stdout.read(length))
        if message.get("method") == "textDocument/publishDiagnostics":
            self.told[message["params"]["uri"]] = message["params"]
        return message

    def tell(self, method, **params):
        self.send({"method": method, "params": params})

    def ask(self, method, **params):
        """The response, or None if the server ends; what comes ahead of it is told."""
        self.last += 1
        self.send({"id": self.last, "method": method, "params": params})
        while message := self.receive():
            if message.get("id") == self.last:
                return message
        return None

    def ask_at(self, method, line, character, uri=URI, **params):
        return self.ask("textDocument/" + method, textDocument={"uri": uri},
                        position={"line": line, "character": character}, **params)

    def open(self, text, version=1, uri=URI):
        self.tell("textDocument/didOpen",
                  textDocument={"uri": uri, "languageId": "kestrin", "version": version, "text": text})

    def change(self, version, *changes, uri=URI):
        self.tell("textDocument/didChange", textDocument={"uri": uri, "version": version},
                  contentChanges=list(changes))

    def diagnostics(self, version=None, uri=URI):
        """What is told of a document, of that version."""
        while uri not in self.told or version not in (None, self.told[uri].get("version")):
            if self.receive() is None:
                return None
        return self.told[uri]["diagnostics"]

    def end(self):
        """Shuts the server down and returns its status."""
        self.ask("shutdown")
        self.tell("exit")
        self.server.communicate()
        return self.server.returncode
