#!/usr/bin/python3
"""Operates the panel as assistive technology does: finds what is on screen by its name, and uses the
actions and values that it offers.

  operate.py "press Orvelle" "set Volume Boost=4" "focus Name this preset" "see EQ"
"""
import sys
import time

import pyatspi
from pyatspi import Atspi

PATIENCE_SECONDS = 5.0


def find(name, interface):
    """What is on screen under that name and offers the interface, as soon as it is there."""
    def fits(item):
        return (item.name == name and interface(item) is not None
                and item.getState().contains(pyatspi.STATE_SHOWING))

    end = time.monotonic() + PATIENCE_SECONDS
    while time.monotonic() < end:
        for application in pyatspi.Registry.getDesktop(0):
            control = application and pyatspi.findDescendant(application, fits)
            if control is not None:
                return control
        time.sleep(0.02)
    there = [item.name for application in pyatspi.Registry.getDesktop(0) if application
             for item in pyatspi.findAllDescendants(application, lambda item: item.name)]
    sys.exit(f"nothing on screen is called {name}, only {there}")


def act(name, action):
    actions = find(name, Atspi.Accessible.get_action_iface).queryAction()
    names = [actions.getName(index) for index in range(actions.nActions)]
    actions.doAction(names.index(action))


def set_value(name, value):
    find(name, Atspi.Accessible.get_value_iface).queryValue().currentValue = float(value)


def see(name):
    find(name, Atspi.Accessible.get_component_iface)


for order in sys.argv[1:]:
    verb, _, rest = order.partition(" ")
    name, _, argument = rest.partition("=")
    if verb == "set":
        set_value(name, argument)
    elif verb == "see":
        see(rest)
    else:
        act(name, {"press": "Press", "focus": "SetFocus"}[verb])
