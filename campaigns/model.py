"""What the catalogue must be, and the messages that change it."""

import os
import random
import re

from device import OK, message

NO_SUCH_NAME = "10008"
BAD_VALUE = "10020"
NO_COMMAND = "10080"


class Model:
    def __init__(self, client):
        client.command("SAVE_CFG", Name="base", Description="words")
        self.rows = {"base": "words"}  # descriptions by name
        with open("/data/cfg/base", "rb") as saved:
            self.channels = saved.read()
        os.makedirs("/data/new", exist_ok=True)

    def step(self, client):
        """Sends one message; the code that it must be answered with, and the one that came."""
        name, other = (f"cfg{number}" for number in random.sample(range(30), 2))
        words = f"words {random.randrange(1000)}"
        there = name in self.rows
        kind = random.randrange(8)
        if kind == 0:
            self.rows[name] = words
            return OK, client.command("SAVE_CFG", Name=name, Description=words)
        if kind == 1:
            with open(f"/data/new/{name}", "wb") as file:
                file.write(self.channels)
            self.rows[name] = words
            return OK, client.command("Import Configuration", File=f"/data/new/{name}",
                                      Description=words)
        if kind == 2:
            if there:
                words = self.rows.pop(name)
                self.rows[other] = words
            return (OK if there else NO_SUCH_NAME,
                    client.command("Rename Configuration", Name=name, New_Name=other))
        if kind == 3:
            self.rows.pop(name, None)
            return OK if there else NO_SUCH_NAME, client.command("REMOVE_CFG", RowID=name)
        if kind == 4:
            return OK if there else NO_SUCH_NAME, client.command("START_CFG", RowID=name)
        if kind == 5:
            return OK, client.command("SET_AUTOSTART_CFG", RowID=name, AutoStart="true")
        if kind == 6:
            return BAD_VALUE, client.command("SAVE_CFG", Name="a/b")
        answer = client.get()
        return OK, answer and answer[1]

    def differs(self, client):
        """True when the table is another than it must be."""
        answer = client.get()
        rows = re.findall(r'<Row ID="([^"]*)" >(.*?)</Row>', answer[2] if answer else "", re.S)
        found = {name: re.search(r'"Description" Value="([^"]*)"', items)[1] for name, items in rows}
        return found != self.rows
