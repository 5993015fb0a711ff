// The report viewer. It renders the data files that the report writer put under data/ and
// never turns a text from a backup into markup: every text goes through textContent, and the
// only URLs it sets are the writer's own links (file: URLs of originals, media/ thumbnails).
'use strict';

(function () {
  const DP = window.DP = window.DP || {};
  const index = DP.index || { types: [], title: 'DataParser report' };
  const loaded = new Map();   // data file id -> items
  const waiting = new Map();  // data file id -> resolve functions

  // Called by every data file but the index.
  DP.onData = function (id, items) {
    loaded.set(id, items);
    const resolvers = waiting.get(id) || [];
    waiting.delete(id);
    resolvers.forEach((resolve) => resolve(items));
  };

  function load(id) {
    if (loaded.has(id)) return Promise.resolve(loaded.get(id));
    return new Promise((resolve) => {
      if (waiting.has(id)) {
        waiting.get(id).push(resolve);
        return;
      }
      waiting.set(id, [resolve]);
      const script = document.createElement('script');
      script.src = 'data/' + id + '.js';
      script.onerror = () => DP.onData(id, []);
      document.body.appendChild(script);
    });
  }

  // The messages of page `page` of a conversation. A list's messages are stored one
  // conversation after the other, `pageSize` a file, so a page spans at most two files.
  function messagePage(type, contents, page) {
    const size = index.pageSize || 1000;
    const start = contents.at + page * size;
    const end = Math.min(start + size, contents.at + contents.count);
    if (!(end > start)) return Promise.resolve([]);
    const first = Math.floor(start / size);
    const ids = [];
    for (let file = first; file <= Math.floor((end - 1) / size); ++file) {
      ids.push('m' + type.code + '-' + file);
    }
    return Promise.all(ids.map(load)).then((files) =>
      [].concat(...files).slice(start - first * size, end - first * size));
  }

  // A conversation's messages: where they start and how many (0 when it has none).
  function contentsOf(session) {
    const contents = isObject(session.contents) ? session.contents : {};
    const at = Number.isInteger(contents.at) ? contents.at : 0;
    const count = Number.isInteger(contents.count) ? contents.count : 0;
    return { at: at, count: count, pages: Math.ceil(count / (index.pageSize || 1000)) };
  }

  // --- small DOM helpers -------------------------------------------------------------------

  function el(tag, className, text) {
    const node = document.createElement(tag);
    if (className) node.className = className;
    if (text !== undefined && text !== null && text !== '') node.textContent = String(text);
    return node;
  }

  // Only the writer's own links are used: originals as file: URLs, thumbnails and copies below
  // media/. Anything else is shown as text.
  function safeUrl(url) {
    return typeof url === 'string' && (url.startsWith('file:///') || url.startsWith('media/'))
        ? url : null;
  }

  // Deleted as a whole: true, or 1 for a conversation all of whose messages were deleted (-1,
  // some of them, leaves the conversation itself unmarked).
  function isDeleted(item) {
    return item.isDeleted === true || item.isDeleted === 1;
  }

  function isObject(value) {
    return value !== null && typeof value === 'object' && !Array.isArray(value);
  }

  function isPicture(value) {
    return isObject(value) && typeof value.thumb === 'string';
  }

  function isLink(value) {
    return isObject(value) && typeof value.href === 'string';
  }

  function firstText(item, keys) {
    for (const key of keys) {
      const value = item[key];
      if (typeof value === 'string' && value !== '') return value;
    }
    return '';
  }

  function formatDate(seconds) {
    if (typeof seconds !== 'number') return '';
    const date = new Date(seconds * 1000);
    return isNaN(date) ? '' : date.toISOString().replace('T', ' ').replace(/\.\d+Z$/, ' UTC');
  }

  function picture(value, alt) {
    const url = safeUrl(value.thumb);
    if (!url) return null;
    const img = el('img');
    img.src = url;
    img.alt = alt || '';
    img.loading = 'lazy';
    return img;
  }

  function link(value, label) {
    const url = safeUrl(value.href);
    const a = el('a', null, label || value.file || value.href);
    if (url) {
      a.href = url;
      a.target = '_blank';
      a.rel = 'noopener';
    }
    return a;
  }

  // --- attachments and payloads --------------------------------------------------------------

  const kindNames = { 1: 'photo', 2: 'video', 3: 'audio', 4: 'document', 5: 'link', 7: 'file',
    8: 'contact card', 9: 'location', 10: 'voice call', 11: 'video call', 12: 'red packet',
    13: 'money transfer', 15: 'emoji', 16: 'mini-program', 17: 'article' };
  const payloadKeys = ['voice', 'video', 'location', 'contact', 'money', 'emoji', 'news',
    'callDuration', 'link'];

  function attachmentNode(attachment) {
    const box = el('div', 'attachment');
    const file = isLink(attachment.localPath) ? attachment.localPath : null;
    const thumb = [attachment.thumb, attachment.image].find(isPicture);
    const kind = attachment.type;
    if (thumb) {
      const img = picture(thumb, attachment.name);
      if (img) box.appendChild(file ? wrapLink(file, img) : img);
    } else if (file && (kind === 2 || kind === 3)) {
      const media = el(kind === 2 ? 'video' : 'audio');
      media.controls = true;
      media.preload = 'none';
      media.src = safeUrl(file.href) || '';
      box.appendChild(media);
    }
    const label = firstText(attachment, ['name']) || kindNames[kind] || 'attachment';
    const caption = el('div', 'payload');
    if (file) caption.appendChild(link(file, label)); else caption.textContent = label;
    if (attachment.strSize) caption.appendChild(document.createTextNode(' · ' + attachment.strSize));
    box.appendChild(caption);
    for (const key of payloadKeys) {
      if (isObject(attachment[key])) box.appendChild(payloadNode(key, attachment[key]));
    }
    return box;
  }

  function wrapLink(file, child) {
    const a = link(file, '');
    a.textContent = '';
    a.appendChild(child);
    return a;
  }

  function payloadNode(name, payload) {
    const node = el('div', 'payload');
    const parts = [];
    for (const [key, value] of Object.entries(payload)) {
      if (key === 'class') continue;
      if (typeof value === 'string' && value !== '') parts.push(key + ': ' + value);
      else if (typeof value === 'number' && value !== 0) parts.push(key + ': ' + value);
    }
    node.textContent = name + (parts.length ? ' — ' + parts.join(', ') : '');
    return node;
  }

  // --- views -------------------------------------------------------------------------------

  const view = document.getElementById('view');
  const nav = document.getElementById('types');

  function pager(count, pageSize, page, go) {
    const pages = Math.max(1, Math.ceil(count / pageSize));
    const bar = el('div', 'pager');
    if (pages <= 1) return bar;
    const prev = el('button', null, '‹ Previous');
    prev.disabled = page <= 0;
    prev.onclick = () => go(page - 1);
    const next = el('button', null, 'Next ›');
    next.disabled = page >= pages - 1;
    next.onclick = () => go(page + 1);
    bar.append(prev, el('span', null, 'page ' + (page + 1) + ' of ' + pages), next);
    return bar;
  }

  function showType(type, page) {
    nav.querySelectorAll('button').forEach((b) => b.classList.toggle('active',
        b.dataset.code === String(type.code)));
    view.replaceChildren(el('p', 'empty', 'Loading…'));
    return load('l' + type.code + '-' + page).then((items) => {
      const go = (next) => showType(type, next);
      const heading = el('h2', null, type.name + ' (' + type.count + ')');
      let body;
      if (type.kind === 'chat') body = chatView(type, items);
      else if (type.kind === 'grid') body = gridView(items);
      else body = cardView(items);
      view.replaceChildren(heading, pager(type.count, index.pageSize, page, go), body);
    });
  }

  function chatView(type, sessions) {
    const wrap = el('div', 'chat');
    const list = el('div', 'sessions');
    const thread = el('div', 'thread');
    thread.appendChild(el('p', 'empty', 'Choose a conversation.'));
    sessions.forEach((session) => {
      const row = el('div', 'session' + (isDeleted(session) ? ' deleted' : ''));
      const name = firstText(session, ['name', 'displayName', 'identifier']) || '(no name)';
      row.appendChild(el('div', 'name', name));
      const count = contentsOf(session).count;
      const recent = isObject(session.recentMessage) ? firstText(session.recentMessage, ['text']) : '';
      row.appendChild(el('div', 'recent', (session.strRecentDate || '') + ' · ' + count +
          ' messages' + (recent ? ' · ' + recent : '')));
      row.onclick = () => {
        list.querySelectorAll('.session').forEach((r) => r.classList.remove('active'));
        row.classList.add('active');
        showThread(thread, type, session, 0);
      };
      list.appendChild(row);
    });
    wrap.append(list, thread);
    return wrap;
  }

  function memberNames(session) {
    const names = new Map();
    (session.members || []).forEach((member) => {
      if (!isObject(member)) return;
      const name = firstText(member, ['name', 'phone', 'identifier']);
      if (member.identifier) names.set(member.identifier, name);
      if (member.phone) names.set(member.phone, name);
    });
    return names;
  }

  function showThread(thread, type, session, page, highlight) {
    const contents = contentsOf(session);
    thread.replaceChildren(el('p', 'empty', 'Loading…'));
    if (!contents.count) {
      thread.replaceChildren(el('p', 'empty', 'No messages.'));
      return;
    }
    messagePage(type, contents, page).then((messages) => {
      const names = memberNames(session);
      const title = el('h3', null, firstText(session, ['name', 'identifier']));
      const nodes = [title, pager(contents.count, index.pageSize, page,
          (next) => showThread(thread, type, session, next))];
      messages.forEach((message) => nodes.push(messageNode(message, names)));
      thread.replaceChildren(...nodes);
      thread.scrollTop = 0;
      if (highlight !== undefined && nodes[highlight + 2]) nodes[highlight + 2].scrollIntoView();
    });
  }

  function messageNode(message, names) {
    if (message.isNotice) {
      const text = firstText(message, ['strNotice', 'text']);
      return el('div', 'notice', (message.strSendDate ? message.strSendDate + ' · ' : '') + text);
    }
    const sent = !message.isReceived;
    const row = el('div', 'bubble-row' + (sent ? ' sent' : ''));
    const bubble = el('div', 'bubble' + (isDeleted(message) ? ' deleted' : ''));
    const sender = sent ? 'Me' : (names.get(message.from) || message.from || '');
    const meta = el('div', 'meta', [sender, message.strSendDate].filter(Boolean).join(' · '));
    if (isDeleted(message)) meta.appendChild(el('span', 'tag-deleted', 'deleted'));
    bubble.appendChild(meta);
    if (message.text) bubble.appendChild(el('div', 'text', message.text));
    if (isObject(message.attachment)) bubble.appendChild(attachmentNode(message.attachment));
    row.appendChild(bubble);
    return row;
  }

  function gridView(items) {
    const grid = el('div', 'grid');
    items.forEach((item) => {
      const tile = el('div', 'tile' + (isDeleted(item) ? ' deleted' : ''));
      tile.appendChild(attachmentNode(item));
      const date = firstText(item, ['strDate', 'strCreateDate', 'strSendDate']);
      if (date) tile.appendChild(el('div', 'payload', date));
      if (isDeleted(item)) tile.appendChild(el('span', 'tag-deleted', 'deleted'));
      grid.appendChild(tile);
    });
    return grid;
  }

  const titleKeys = ['name', 'title', 'displayName', 'fullName', 'strName', 'subject',
    'phoneNumber', 'number', 'url'];

  function cardView(items) {
    const cards = el('div', 'cards');
    items.forEach((item) => cards.appendChild(card(item, 0)));
    return cards;
  }

  function card(item, depth) {
    const node = el('div', 'card' + (isDeleted(item) ? ' deleted' : ''));
    const title = firstText(item, titleKeys);
    if (depth === 0) {
      const h = el('h3', null, title || item.class || '');
      if (isDeleted(item)) h.appendChild(el('span', 'tag-deleted', 'deleted'));
      node.appendChild(h);
    }
    const table = el('table');
    for (const [key, value] of Object.entries(item)) {
      if (key === 'class' || key === 'isDeleted') continue;
      const cell = valueNode(value, depth);
      if (!cell) continue;
      const tr = el('tr');
      tr.append(el('td', 'key', key));
      const td = el('td');
      td.appendChild(cell);
      tr.appendChild(td);
      table.appendChild(tr);
    }
    node.appendChild(table);
    return node;
  }

  // A field's cell, or null for an empty value.
  function valueNode(value, depth) {
    if (value === null || value === undefined || value === '' || value === false) return null;
    if (typeof value === 'string') return document.createTextNode(value);
    if (typeof value === 'number') {
      return value === 0 ? null : document.createTextNode(String(value));
    }
    if (value === true) return document.createTextNode('yes');
    if (isPicture(value)) return picture(value, '');
    if (isLink(value)) return link(value);
    if (Array.isArray(value)) {
      if (value.length === 0 || depth > 2) return null;
      const list = el('div');
      value.forEach((entry) => {
        const child = valueNode(entry, depth + 1);
        if (child) {
          const row = el('div');
          row.appendChild(child);
          list.appendChild(row);
        }
      });
      return list.childNodes.length ? list : null;
    }
    if (isObject(value)) {
      if (depth > 2) return null;
      if (value.class && /Attachment/.test(value.class)) return attachmentNode(value);
      return card(value, depth + 1);
    }
    return null;
  }

  // --- search across conversations ---------------------------------------------------------

  let searchToken = 0;

  async function search(query) {
    const token = ++searchToken;
    const needle = query.toLocaleLowerCase();
    nav.querySelectorAll('button').forEach((b) => b.classList.remove('active'));
    const results = el('div', 'results');
    const status = el('p', 'empty', 'Searching…');
    view.replaceChildren(el('h2', null, 'Messages containing “' + query + '”'), status, results);
    let hits = 0;
    const limit = 200;
    for (const type of index.types.filter((t) => t.kind === 'chat')) {
      for (let page = 0; page < type.pages && hits < limit; ++page) {
        const sessions = await load('l' + type.code + '-' + page);
        for (const session of sessions) {
          const contents = contentsOf(session);
          for (let p = 0; p < contents.pages && hits < limit; ++p) {
            const messages = await messagePage(type, contents, p);
            if (token !== searchToken) return;
            messages.forEach((message, i) => {
              const text = firstText(message, ['text', 'strNotice']);
              if (hits >= limit || !text.toLocaleLowerCase().includes(needle)) return;
              ++hits;
              const hit = el('div', 'hit');
              hit.append(el('div', 'where', type.name + ' · ' +
                  firstText(session, ['name', 'identifier']) + ' · ' + (message.strSendDate || '')),
              el('div', null, text));
              hit.onclick = () => openHit(type, session, p, i);
              results.appendChild(hit);
            });
          }
        }
      }
    }
    if (token !== searchToken) return;
    status.textContent = hits === 0 ? 'No message found.'
        : hits >= limit ? 'First ' + limit + ' messages found.' : hits + ' messages found.';
  }

  function openHit(type, session, page, i) {
    const wrap = el('div', 'chat');
    const thread = el('div', 'thread');
    wrap.appendChild(thread);
    view.replaceChildren(el('h2', null, type.name), wrap);
    showThread(thread, type, session, page, i);
  }

  // --- start -------------------------------------------------------------------------------

  document.getElementById('title').textContent = index.title || 'DataParser report';
  const total = index.types.reduce((sum, t) => sum + t.count, 0);
  document.getElementById('summary').textContent = (index.source ? index.source + ' · ' : '') +
      total + ' items' + (index.deleted ? ' · deleted items included' : '') +
      (index.status && index.status !== 1 ? ' · scan ' + (index.status === 2 ? 'stopped' : 'failed') : '');
  index.types.forEach((type) => {
    const button = el('button');
    button.dataset.code = String(type.code);
    button.append(el('span', null, type.name), el('span', 'count', type.count));
    button.onclick = () => showType(type, 0);
    nav.appendChild(button);
  });
  let timer = 0;
  document.getElementById('search').addEventListener('input', (event) => {
    clearTimeout(timer);
    const query = event.target.value.trim();
    timer = setTimeout(() => { if (query) search(query); }, 250);
  });
  // A link may name a view: #type=CODE&page=P&conversation=I (I counts on that page).
  const wanted = new URLSearchParams(location.hash.slice(1));
  const first = index.types.find((t) => String(t.code) === wanted.get('type')) || index.types[0];
  if (first) {
    const page = Math.max(0, parseInt(wanted.get('page') || '0', 10) || 0);
    showType(first, page).then(() => {
      const i = parseInt(wanted.get('conversation') || '', 10);
      const rows = view.querySelectorAll('.session');
      if (i >= 0 && i < rows.length) rows[i].click();
    });
  } else {
    view.replaceChildren(el('p', 'empty', 'The scan found nothing to show.'));
  }
})();
