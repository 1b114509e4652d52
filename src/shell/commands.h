#pragma once

// Command identifiers: what a menu item, toolbar button or key asks the
// controller to do. Identifiers 20001 to 20999 choose a take.
enum TDCommand : int {
  CM_NONE = 0,

  // Track commands act on the current track.
  CM_TRACK_ADD = 1001,
  CM_TRACK_INSERT,
  CM_TRACK_DELETE,
  CM_TRACK_MOVE_UP,
  CM_TRACK_MOVE_DOWN,
  CM_TRACK_PICK_COLOR,
  CM_TRACK_MUTE_TOGGLE,
  CM_TRACK_SOLO_TOGGLE,
  CM_TRACK_RECORD_TOGGLE,
  CM_TRACK_MONITOR_TOGGLE,
  CM_TRACK_COLLAPSE,
  CM_TRACK_EXPAND,
  CM_TRACK_COLLAPSE_ALL,
  CM_TRACK_EXPAND_ALL,
  CM_TRACK_COLLAPSE_SELECTED,
  CM_TRACK_EXPAND_SELECTED,
  CM_TRACK_SELECT_FIRST,
  CM_TRACK_SELECT_LAST,
  CM_SELECT_NEXT_TRACK,
  CM_SELECT_PREV_TRACK,

  // The project as a document.
  CM_PROJECT_NEW = 1801,
  CM_PROJECT_OPEN,
  CM_PROJECT_SAVE,
  CM_PROJECT_SAVE_AS,
  CM_PROJECT_CLOSE,
  CM_PROJECT_EXPORT,
  // Live effects added to the current track with their defaults, one per
  // effect that plays in this build.
  CM_TRACK_LIVE_EFFECTS_ADD_AMPLIFY = 1101,
  CM_TRACK_LIVE_EFFECTS_ADD_HIGHPASS,
  CM_TRACK_LIVE_EFFECTS_ADD_LOWPASS,

  // Clip commands act on the selected clips.
  CM_CLIP_DELETE = 2001,
  CM_CLIP_SPLIT,
  CM_CLIP_JOIN,
  CM_CLIP_LOCK_TOGGLE,
  CM_CLIP_RESTORE,
  CM_CLIP_SET_BASE,
  CM_CLIP_MOVE_TO_CURSOR,
  CM_CLIP_MOVE_TO_START,
  CM_CLIP_NUDGE_LEFT,
  CM_CLIP_NUDGE_RIGHT,
  CM_CLIP_FADE_IN,
  CM_CLIP_FADE_OUT,
  CM_CLIP_CROSS_FADE,
  CM_CLIP_ADD_FADE_POINT,
  CM_CLIP_DELETE_FADE_POINTS,
  CM_CLIP_SELECT_ALL,
  CM_CLIP_SELECT_NEXT,
  CM_CLIP_SELECT_PREV,
  CM_TRACK_TOGGLE_LOCK,
  // Take commands act on the selected takes, or the take a menu was opened on.
  CM_CHOOSE_NEXT_TAKE = 2101,
  CM_CHOOSE_PREV_TAKE,
  CM_DELETE_ACTIVE_TAKE,
  CM_DELETE_NO_ACTIVE_TAKES,
  CM_EXPAND_TAKES,

  CM_CANCEL = 1901,

  // The transport. The go-to commands are also the start and end buttons.
  CM_PLAY_STOP = 2201,
  CM_GO_TO_START,
  CM_GO_TO_END,
  CM_PLAY,
  CM_PLAY_FROM_CURSOR,
  CM_PAUSE,
  CM_STOP,
  CM_STOP_AND_RETURN,
  // Winding: pressed starts it, released (CM_WIND_END) ends it.
  CM_REWIND,
  CM_FAST_FORWARD,
  CM_WIND_END,
  CM_SCRUB_TOGGLE,
  // Scrub keys: held moves the scrub spot, one step at a time without Begin.
  CM_SCRUB_REWIND,
  CM_SCRUB_REWIND_BEGIN,
  CM_SCRUB_REWIND_END,
  CM_SCRUB_FAST_FORWARD,
  CM_SCRUB_FAST_FORWARD_BEGIN,
  CM_SCRUB_FAST_FORWARD_END,
  CM_LOOP_PLAY_TOGGLE,

  // Bookmarks on the time line.
  CM_BOOKMARK_ADD = 2301,
  CM_GOTO_NEXT_BOOKMARK,
  CM_GOTO_PREV_BOOKMARK,
  // The working region: what plays in a loop.
  CM_LOOP_ADD,
  CM_SELECT_LOOP_AREA_START,
  CM_SELECT_LOOP_AREA_END,
  CM_DESELECT_LOOP_AREA,

  CM_TAKE_FIRST = 20001,
  CM_TAKE_LAST = 20999,
};
