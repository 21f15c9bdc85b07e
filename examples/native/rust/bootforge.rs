//! The interface between bootforge and a native plugin, include/bootforge/plugin.h in Rust.
//!
//! A reference that may be missing has the layout of a pointer that may be null, so nothing in a
//! plugin is unsafe but the names that it exports.

use std::os::raw::c_int;
use std::panic;

/// A text that ends in a zero byte, or none.
pub type Text = Option<&'static u8>;
/// A list of texts that ends in one that is missing, or no list.
pub type Texts = Option<&'static Text>;
/// 0 is success; the low byte of another value is the exit status.
pub type Entry = extern "C" fn() -> c_int;

/// What the plugin is and when it runs: "metadata".
#[repr(C)]
pub struct Metadata {
    /// 1 to 4.
    pub api_version: i32,
    /// Milestones that must be reached before the plugin runs.
    pub requires: Texts,
    /// Milestones that the plugin reaches.
    pub provides: Texts,
    // Read from version 3 on.
    /// Letters, digits and - . _ +.
    pub plugin_version: Text,
    /// Run once for each plugin_version.
    pub run_once: bool,
    /// Boot flags that must all be given for the plugin to run.
    pub required_flags: Texts,
    /// Boot flags any of which keeps it from running.
    pub disabling_flags: Texts,
}

/// What it does: "operations".
#[repr(C)]
pub struct Operations {
    pub start: Option<Entry>,
    /// Runs in the place of start on a host with a profile, from version 2 on.
    pub apply_host_profile: Option<Entry>,
}

// The layouts are a binary interface.
const _: () = assert!(std::mem::size_of::<Metadata>() == 56);
const _: () = assert!(std::mem::size_of::<Operations>() == 16);

/// A text for a record. It has to end in "\0", which is seen when the plugin is compiled.
pub const fn text(text: &'static str) -> Text {
    let bytes = text.as_bytes();
    assert!(bytes[bytes.len() - 1] == 0, "the text does not end in a zero byte");
    Some(&bytes[0])
}

/// A list for a record. It has to end in None.
pub const fn texts<const N: usize>(list: &'static [Text; N]) -> Texts {
    assert!(list[N - 1].is_none(), "the list does not end in None");
    Some(&list[0])
}

/// Does the work of an entry, which is called from C: an error becomes a line on standard error,
/// and a panic, which has said so itself, ends here.
pub fn entry(name: &str, work: fn() -> std::io::Result<()>) -> c_int {
    match panic::catch_unwind(work) {
        Ok(Ok(())) => 0,
        Ok(Err(error)) => {
            eprintln!("{}: {}", name, error);
            1
        }
        Err(_) => 1,
    }
}
